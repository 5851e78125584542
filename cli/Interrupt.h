// Ctrl-C (SIGINT) and SIGTERM for the commands that wait for an answer: the
// signal only raises a flag, and the command's own loop, looking at it every
// 100 ms, cancels the call it waits for and ends with status 130, as a shell
// reports Ctrl-C.
#pragma once

#include <chrono>
#include <functional>

#include "veltrane/foundation/Call.h"

namespace veltrane::cli {

inline constexpr int kInterrupted = 130;

// Catches SIGINT and SIGTERM from now on, as a flag.
void catchInterrupts();
bool interrupted();

// Drives the main queue on this thread until answered() or the limit; on an
// interruption cancels group, and goes on until the cancellation's answer.
// Returns answered().
bool driveMainQueue(const std::function<bool()>& answered, const CallGroup& group, std::chrono::nanoseconds limit);

// Waits on this thread until answered() (the answer coming on another
// thread) or the limit, with the same care for interruptions.
bool waitForAnswer(const std::function<bool()>& answered, const CallGroup& group, std::chrono::nanoseconds limit);

} // namespace veltrane::cli
