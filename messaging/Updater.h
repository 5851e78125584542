/// @file
/// The update check: reads the installation manifest of the application's
/// build (a property list on a web server, or a file) and says whether it
/// announces a newer version than the one running.
#pragma once

#include <string>

#include "veltrane/foundation/Callbacks.h"

namespace veltrane {

/// The update check: reads the installation manifest of the application's build (a property
/// list on a web server, or a file) and says whether it announces a newer version than the
/// one running.
class Updater {
public:
    /// Fetches the manifest at url (http, https or file; XML or binary) on the
    /// high-priority global queue and compares its items[0].metadata's
    /// "bundle-version" with the application's "CFBundleShortVersionString"
    /// (Bundle::mainBundle()) by their leading decimal numbers: 1.10 reads as
    /// 1.1, older than 1.9; 2.0.3 equals 2.0.1. The completion runs on the main
    /// queue with (remote > local, "Version <remote>" or "Version <remote> \n
    /// <note>"); "(null)" stands for a missing version. A manifest that cannot
    /// be had, or whose items, first item or metadata is of the wrong kind, or
    /// whose version is neither text nor a number from 0 to 2^53 (a date,
    /// data, a boolean, a negative or huge number), gives (false, nothing).
    /// The check is a Call of the current CallScope's group: cancelled, it
    /// answers (false, "checkWithPListURL: cancelled") at once; past its
    /// deadline, (false, "checkWithPListURL: no answer within <N> ms").
    static void checkWithPListURL(std::string url, UpdateCheckCompletion callback);
};

} // namespace veltrane
