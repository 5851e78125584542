// The command line's subcommands that live in files of their own: each adds
// itself to the application and says how to run once parsed.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <vector>

namespace veltrane::cli {

struct Command {
    CLI::App* app;
    std::function<int()> run;  // the process's exit status
};

// sandbox (serve the sandbox until Ctrl-C; revealPersonalData is read when it
// runs) and journal (what a running sandbox received).
std::vector<Command> addSandboxCommands(CLI::App& app, const bool& revealPersonalData);

// push (queue a push message on a sandbox), watch (the push-message poller
// until Ctrl-C) and update-check (a manifest against a local version).
std::vector<Command> addMessagingCommands(CLI::App& app);

// `veltrane --version`: the library's version, then libcurl's, SQLite's,
// simdjson's and libplist's, a line each.
std::string versions();

} // namespace veltrane::cli
