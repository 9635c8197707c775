// SPDX-License-Identifier: MIT
#include "command_run.h"

#include <fitsio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <numeric>

namespace vornctltest {
namespace {

namespace fs = std::filesystem;

std::string contentsOf(const fs::path& path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace

size_t Outcome::errorLines() const
{
    return static_cast<size_t>(std::count(err.begin(), err.end(), '\n'));
}

double FitsFile::mean() const
{
    return std::accumulate(pixels.begin(), pixels.end(), 0.0) / static_cast<double>(pixels.size());
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

Outcome CommandLine::shell(const std::string& command) const
{
    const fs::path out = captured_ / "out";
    const fs::path err = captured_ / "err";
    // For builds with sanitizers; others take no notice.
    const std::string leaks = std::string("export LSAN_OPTIONS=print_suppressions=0:suppressions=") + LEAKS;
    const std::string whole = leaks + " && cd '" + directory_.string() + "' && { " + command + "; } >'" + out.string() +
                              "' 2>'" + err.string() + "' </dev/null";
    const int status = std::system(whole.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, contentsOf(out), contentsOf(err)};
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
    std::ofstream(captured_ / "script.sh") << text << "\n";
    return shell(std::string("VORNCTL='") + VORNCTL + "' '" + VORNSIM + "' run " + simulator + " -- sh '" +
                 (captured_ / "script.sh").string() + "'");
}

FitsFile CommandLine::readFits(const std::string& name) const
{
    FitsFile contents;
    fitsfile* file = nullptr;
    int status = 0;
    std::array<long, 2> size = {};
    fits_open_diskfile(&file, path(name).c_str(), READONLY, &status);
    fits_get_img_size(file, 2, size.data(), &status);
    if (status != 0) {
        ADD_FAILURE() << name << " cannot be read back";
        return contents;
    }
    contents.width = size[0];
    contents.height = size[1];
    contents.pixels.resize(static_cast<size_t>(size[0] * size[1]));
    fits_read_img(file, TUSHORT, 1, size[0] * size[1], nullptr, contents.pixels.data(), nullptr, &status);
    int count = 0;
    fits_get_hdrspace(file, &count, nullptr, &status);
    for (int i = 1; i <= count; ++i) {
        std::array<char, FLEN_KEYWORD> key = {};
        std::array<char, FLEN_VALUE> value = {};
        fits_read_keyn(file, i, key.data(), value.data(), nullptr, &status);
        std::string text = value.data();
        if (text.starts_with('\''))
            text = text.substr(1, text.find_last_not_of("' "));
        contents.keys[key.data()] = text;
    }
    fits_close_file(file, &status);
    EXPECT_EQ(status, 0) << name;
    return contents;
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
