// SPDX-License-Identifier: MIT
#include "preload.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace vornsim {
namespace {

constexpr const char* LIBRARY = "libumockdev-preload.so.0";
constexpr const char* STARTED_AGAIN =
    "VORNSIM_STARTED_AGAIN";  // set when vornsim has started itself again, so that it does so once

bool isLoaded()
{
    void* library = dlopen(LIBRARY, RTLD_LAZY | RTLD_NOLOAD);
    if (library)
        (void)dlclose(library);
    return library != nullptr;
}

/// @return the path of our own library for host programs, which is where the installation puts it beside this program.
/// It cannot be loaded when the path has what separates entries of LD_PRELOAD; umockdev's alone has to do then.
std::string hostLibrary()
{
    std::error_code error;
    const auto bin = std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
    for (const char* directory : {"lib", VORNSIM_LIBRARY_DIR}) {
        const auto path = bin.parent_path() / directory / "libvornsim-host.so";
        if (std::filesystem::exists(path, error) && path.string().find_first_of(": ") == std::string::npos)
            return path.string();
    }
    return "";
}

/// @return the value of a variable with @p addition after what it has, unless it has @p key already.
std::string extended(const char* name, const char* key, const char* addition)
{
    const char* present = std::getenv(name);
    if (!present || !*present)
        return addition;
    return std::strstr(present, key) ? std::string(present) : std::string(present) + ":" + addition;
}

}  // namespace

std::vector<std::string> preloadEnvironment()
{
    std::string libraries = extended("LD_PRELOAD", LIBRARY, LIBRARY);
    const std::string own = hostLibrary();
    if (!own.empty() && libraries.find(own) == std::string::npos)
        libraries.insert(0, own + ":");
    // The address sanitizer's runtime insists on being loaded first and ends a program that preloads anything else.
    return {"LD_PRELOAD=" + libraries, std::string("ASAN_OPTIONS=") + extended("ASAN_OPTIONS", "verify_asan_link_order",
                                                                               "verify_asan_link_order=0")};
}

std::string ensurePreload(char** argv)
{
    const bool secondLife = std::getenv(STARTED_AGAIN) != nullptr;
    (void)unsetenv(STARTED_AGAIN);
    if (isLoaded())
        return "";
    void* library = dlopen(LIBRARY, RTLD_LAZY | RTLD_LOCAL);
    if (!library)
        return "umockdev, which shows simulated cameras to other programs, is not installed (" + std::string(LIBRARY) +
               " not found). Install it with: sudo apt install umockdev";
    (void)dlclose(library);
    if (secondLife)
        return std::string(LIBRARY) +
               " is installed, but the system does not let it be preloaded; a program with "
               "special rights (setuid, capabilities) cannot be run this way";

    for (const std::string& variable : preloadEnvironment()) {
        const size_t equals = variable.find('=');
        (void)setenv(variable.substr(0, equals).c_str(), variable.c_str() + equals + 1, 1);
    }
    (void)setenv(STARTED_AGAIN, "1", 1);
    (void)execv("/proc/self/exe", argv);
    return std::string("cannot start again with umockdev: ") + std::strerror(errno);
}

}  // namespace vornsim
