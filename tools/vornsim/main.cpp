// SPDX-License-Identifier: MIT
#include <algorithm>
#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstring>
#include <exception>
#include <vector>

#include "subcommand.h"

namespace {

constexpr const char* EXAMPLES = R"(Examples:
  vornsim list
  vornsim run --camera "Vorn K12" -- vornctl list

Each subcommand has a --help of its own.)";

/// Everything up to the first "--" is vornsim's, everything after it the program's.
char** endOfOwnArguments(int argc, char** argv)
{
    return std::find_if(argv, argv + argc, [](const char* argument) { return std::strcmp(argument, "--") == 0; });
}

/// The command line, apart from what nobody expects to go wrong.
int runVornsim(int argc, char** argv)
{
    using namespace vornsim;
    CLI::App app("Simulated Vorn cameras for any program that uses libusb-1.0.", "vornsim");
    app.footer(EXAMPLES);
    app.set_version_flag("--version", "vornsim " VORNSIM_VERSION);
    app.require_subcommand(1);
    const std::vector<Subcommand> subcommands = {
        addListCommand(app),
        addRunCommand(app),
        addUsbipCommand(app),
#ifdef VORNSIM_HAS_REDIR
        addRedirCommand(app),
#endif
    };

    char** const ownEnd = endOfOwnArguments(argc, argv);
    try {
        app.parse(static_cast<int>(ownEnd - argv), argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : EXIT_USAGE;
    }
    const auto chosen = std::find_if(subcommands.begin(), subcommands.end(),
                                     [](const Subcommand& command) { return command.options->parsed(); });
    return chosen->run({argv, {std::min(ownEnd + 1, argv + argc), argv + argc}});
}

}  // namespace

int vornsim::fail(int exitStatus, const std::string& message)
{
    std::fprintf(stderr, "vornsim: %s\n", message.c_str());
    return exitStatus;
}

int main(int argc, char** argv)
{
    try {
        return runVornsim(argc, argv);
    } catch (const std::exception& error) {  // no memory, most likely
        return vornsim::fail(vornsim::EXIT_OWN_FAILURE, error.what());
    }
}
