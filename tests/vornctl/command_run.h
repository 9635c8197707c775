// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace vornctltest {

/// How a program ended and what it said.
struct Outcome {
    int status = -1;
    std::string out;
    std::string err;

    size_t errorLines() const;
};

/// A FITS file read back by the FITS library.
struct FitsFile {
    long width = 0;
    long height = 0;
    std::vector<uint16_t> pixels;
    std::map<std::string, std::string> keys;  ///< values as the header spells them, text without quotes

    double mean() const;
};

/// Runs programs in a directory of its own, which goes when the test ends.
class CommandLine : public ::testing::Test {
protected:
    CommandLine();
    ~CommandLine() override;

    /// Runs vornctl on the machine as it is.
    Outcome vornctl(const std::string& arguments) const;

    /// Runs vornctl with simulated cameras; @p simulator has vornsim's options.
    Outcome simulated(const std::string& simulator, const std::string& arguments) const;

    /// Runs a shell script with simulated cameras, in which $VORNCTL is the program.
    Outcome script(const std::string& simulator, const std::string& text) const;

    FitsFile readFits(const std::string& name) const;

    /// @return the names of all files that the programs have left, hidden ones too.
    std::vector<std::string> files() const;

    std::filesystem::path path(const std::string& name) const { return directory_ / name; }

private:
    Outcome shell(const std::string& command) const;

    std::filesystem::path directory_;
    std::filesystem::path captured_;
};

}  // namespace vornctltest
