// SPDX-License-Identifier: MIT
#pragma once

#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <string>

namespace vornsim::test {

/// What a command printed, on standard output and error, and how it ended.
struct CommandResult {
    std::string output;
    int exitStatus = -1;
};

/// Runs a command line in the shell.
inline CommandResult runShell(const std::string& commandLine)
{
    CommandResult result;
    std::FILE* pipe = popen(("{ " + commandLine + "\n} 2>&1").c_str(), "r");
    if (!pipe)
        return result;
    std::array<char, 4096> part{};
    while (const size_t count = std::fread(part.data(), 1, part.size(), pipe))
        result.output.append(part.data(), count);
    const int status = pclose(pipe);
    result.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
}

}  // namespace vornsim::test
