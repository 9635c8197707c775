// SPDX-License-Identifier: MIT
#include "command_run.h"

#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>

namespace vornctltest {

::testing::AssertionResult Outcome::refused(int wanted, const std::string& part) const
{
    const bool oneLine = std::count(err.begin(), err.end(), '\n') == 1;
    if (status == wanted && oneLine && err.find(part) != std::string::npos)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "ended with " << status << " and said " << err;
}

Outcome CommandLine::shell(const std::string& command) const
{
    // For builds with sanitizers; others take no notice.
    const std::string leaks = std::string("export LSAN_OPTIONS=print_suppressions=0:suppressions=") + LEAKS;
    const std::string whole = leaks + " && cd '" + path("") + "' && { " + command + "; } >'" + captured_.path("out") +
                              "' 2>'" + captured_.path("err") + "' </dev/null";
    const int status = std::system(whole.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, captured_.contents("out"), captured_.contents("err")};
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
    std::ofstream(captured_.path("script.sh")) << text << "\n";
    return shell(std::string("VORNCTL='") + VORNCTL + "' '" + VORNSIM + "' run " + simulator + " -- sh '" +
                 captured_.path("script.sh") + "'");
}

Outcome CommandLine::pictures(const std::vector<std::string>& models, const std::string& exposure) const
{
    std::string command = "jobs=; ";
    for (const std::string& model : models)
        command += std::string("'") + VORNSIM + "' run --scene ramp --camera " + model + " -- '" + VORNCTL +
                   "' expose -q -t 0.01 -o " + model + ".fits " + exposure + " & jobs=\"$jobs $!\"; ";
    return shell(command + "for job in $jobs; do wait $job || exit $?; done");
}

}  // namespace vornctltest
