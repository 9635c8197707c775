// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "camera_set.h"

namespace vornsim {

// Exit statuses of vornsim's own failures, apart from the program's as far as that goes; env(1) and timeout(1) use the
// last three in the same way.
inline constexpr int EXIT_USAGE = 2;
inline constexpr int EXIT_OWN_FAILURE = 125;
inline constexpr int EXIT_NOT_EXECUTABLE = 126;
inline constexpr int EXIT_NOT_FOUND = 127;

/// What the options of all subcommands say.
struct Options {
    CameraChoice choice;
    bool json = false;                      ///< list
    unsigned usbfsMemoryMib = 16;           ///< run: what a stock kernel sets aside; 0 for any number
    std::string listen = "127.0.0.1:3240";  ///< usbip
    std::vector<std::string> sockets;       ///< redir: one for each camera
};

/// What the command line holds apart from options.
struct CommandLine {
    char** argv = nullptr;             ///< all of it, to start again with
    std::vector<std::string> program;  ///< what stands after the first "--"
};

// Each gives the exit status, and has said on standard error what went wrong.

/// `vornsim list`: prints the models that can be simulated, as a table or as JSON.
int listCommand(const Options& options);
/// `vornsim run`: runs a program with simulated cameras in place of the machine's USB devices, and gives its exit
/// status.
int runCommand(const Options& options, const CommandLine& line);
/// `vornsim usbip`: lets real kernels attach simulated cameras.
int usbipCommand(const Options& options);
/// `vornsim redir`: plugs simulated cameras into a guest of QEMU. Only where libusbredirparser is found.
int redirCommand(const Options& options);

/// Says what went wrong on standard error. @return @p exitStatus.
int fail(int exitStatus, const std::string& message);

}  // namespace vornsim
