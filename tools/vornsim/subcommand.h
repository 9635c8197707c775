// SPDX-License-Identifier: MIT
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

namespace vornsim {

// Exit statuses of vornsim's own failures, apart from the program's as far as that goes; env(1) and timeout(1) use the
// last three in the same way.
inline constexpr int EXIT_USAGE = 2;
inline constexpr int EXIT_OWN_FAILURE = 125;
inline constexpr int EXIT_NOT_EXECUTABLE = 126;
inline constexpr int EXIT_NOT_FOUND = 127;

/// What the command line holds apart from options.
struct CommandLine {
    char** argv = nullptr;             ///< all of it, to start again with
    std::vector<std::string> program;  ///< what stands after the first "--"
};

/// A subcommand: its options, and what it does when it was the chosen one. @ref run gives the exit status, and has said
/// on standard error what went wrong.
struct Subcommand {
    CLI::App* options;
    std::function<int(const CommandLine& line)> run;
};

// Each declares its options in the file of its name; main() has the list of them.
Subcommand addListCommand(CLI::App& app);
Subcommand addRunCommand(CLI::App& app);
Subcommand addUsbipCommand(CLI::App& app);
Subcommand addRedirCommand(CLI::App& app);  // only where libusbredirparser is found

/// Says what went wrong on standard error. @return @p exitStatus.
int fail(int exitStatus, const std::string& message);

}  // namespace vornsim
