// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace capturetest {

/// An empty directory of this process, which goes with this object.
class TestDirectory {
public:
    TestDirectory() { std::filesystem::create_directories(directory_); }
    ~TestDirectory() { std::filesystem::remove_all(directory_); }
    TestDirectory(const TestDirectory&) = delete;
    TestDirectory& operator=(const TestDirectory&) = delete;

    std::string path(const std::string& name) const { return (directory_ / name).string(); }

    std::string contents(const std::string& name) const
    {
        std::ifstream file(path(name));
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

    /// @return the names of all files in it, hidden ones too.
    std::vector<std::string> names() const
    {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(directory_))
            found.push_back(entry.path().filename().string());
        std::sort(found.begin(), found.end());
        return found;
    }

private:
    static inline int count_ = 0;
    std::filesystem::path directory_ =
        ::testing::TempDir() + "vornccd-" + std::to_string(getpid()) + "-" + std::to_string(++count_);
};

}  // namespace capturetest
