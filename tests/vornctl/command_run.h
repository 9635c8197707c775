// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "../capture/fits_file.h"
#include "../capture/test_directory.h"

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
class CommandLine : public ::testing::Test, protected capturetest::TestDirectory {
protected:
    /// Runs vornctl on the machine as it is.
    Outcome vornctl(const std::string& arguments) const;

    /// Runs vornctl with simulated cameras; @p simulator has vornsim's options.
    Outcome simulated(const std::string& simulator, const std::string& arguments) const;

    /// Runs a shell script with simulated cameras, in which $VORNCTL is the program.
    Outcome script(const std::string& simulator, const std::string& text) const;

    /// Takes a picture of the test pattern with each of @p models at once, into "K12.fits", each with a simulator of
    /// its own: opening takes most of the time, and a camera that gets its firmware is away from the bus for a while.
    /// @return status 0 when all were taken.
    Outcome pictures(const std::vector<std::string>& models, const std::string& exposure) const;

    capturetest::FitsFile readFits(const std::string& name) const { return capturetest::readFits(path(name)); }

private:
    Outcome shell(const std::string& command) const;

    capturetest::TestDirectory captured_;
};

}  // namespace vornctltest
