// SPDX-License-Identifier: MIT
#include "command_run.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace vornctltest {

namespace fs = std::filesystem;

::testing::AssertionResult Outcome::refused(int wanted, const std::string& part) const
{
    const bool oneLine = std::count(err.begin(), err.end(), '\n') == 1;
    if (status == wanted && oneLine && err.find(part) != std::string::npos)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "ended with " << status << " and said " << err;
}

CommandLine::CommandLine()
{
    const fs::path base = fs::path(::testing::TempDir()) / ("vornctl-" + std::to_string(getpid()));
    fs::remove_all(base);
    directory_ = base / "files";
    captured_ = base / "captured";
    fs::create_directories(directory_);
    fs::create_directories(captured_);
}

CommandLine::~CommandLine()
{
    fs::remove_all(directory_.parent_path());
}

std::string CommandLine::contents(const std::string& name) const
{
    std::ifstream file(path(name));
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

Outcome CommandLine::shell(const std::string& command) const
{
    // For builds with sanitizers; others take no notice.
    const std::string leaks = std::string("export LSAN_OPTIONS=print_suppressions=0:suppressions=") + LEAKS;
    const std::string whole = leaks + " && cd '" + directory_.string() + "' && { " + command +
                              "; } >../captured/out 2>../captured/err </dev/null";
    const int status = std::system(whole.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, contents("../captured/out"), contents("../captured/err")};
}

Outcome CommandLine::vornctl(const std::string& arguments) const
{
    return shell(std::string("'") + VORNCTL + "' " + arguments);
}

Outcome CommandLine::simulated(const std::string& simulator, const std::string& arguments) const
{
    return script(simulator, "exec \"$VORNCTL\" " + arguments);
}

Outcome CommandLine::script(const std::string& simulator, const std::string& text) const
{
    std::ofstream(captured_ / "script.sh") << R"(jobs=
        picture() { "$VORNCTL" expose -q "$@" & jobs="$jobs $!"; }
        )" << text << R"(
        for job in $jobs; do wait $job || failed=$?; done
        exit ${failed-0})";
    return shell(std::string("VORNCTL='") + VORNCTL + "' '" + VORNSIM + "' run " + simulator +
                 " -- sh ../captured/script.sh");
}

std::vector<std::string> CommandLine::files() const
{
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(directory_))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace vornctltest
