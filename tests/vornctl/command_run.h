// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "../capture/fits_file.h"

namespace vornctltest {

/// How a program ended and what it said.
struct Outcome {
    int status = -1;
    std::string out;
    std::string err;

    /// @return whether it ended with @p wanted and one line on standard error that has @p part.
    ::testing::AssertionResult refused(int wanted, const std::string& part) const;
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

    /// Runs a shell script with simulated cameras, in which $VORNCTL is the program and picture exposes with a camera
    /// in the background. Opening takes most of the time, so each picture gets a camera of its own. The script ends
    /// when all pictures are taken, with the status of one that failed.
    Outcome script(const std::string& simulator, const std::string& text) const;

    capturetest::FitsFile readFits(const std::string& name) const { return capturetest::readFits(path(name)); }

    /// @return the names of all files that the programs have left, hidden ones too.
    std::vector<std::string> files() const;

    std::filesystem::path path(const std::string& name) const { return directory_ / name; }

    /// @return what stands in the file @p name that the programs have left.
    std::string contents(const std::string& name) const;

private:
    Outcome shell(const std::string& command) const;

    std::filesystem::path directory_;
    std::filesystem::path captured_;
};

}  // namespace vornctltest
