// SPDX-License-Identifier: MIT
#include "usbfs_memory.h"

#include <cerrno>
#include <filesystem>
#include <fstream>

namespace vornsim {
namespace {

// What the kernel (6.1, 64 bits) counts beside the bytes: two records for each transfer, and for a large one a table
// with an entry for each piece.
constexpr uint64_t RECORDS_LENGTH = 104 + 184;
constexpr uint64_t PIECE_LENGTH = 16384;
constexpr uint64_t ENTRY_LENGTH = 32;

uint64_t costOf(uint64_t length)
{
    const uint64_t pieces = (length + PIECE_LENGTH - 1) / PIECE_LENGTH;
    return RECORDS_LENGTH + length + (pieces > 1 ? pieces * ENTRY_LENGTH : 0);
}

}  // namespace

int UsbfsMemory::start(const std::string& file, unsigned limitMib)
{
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(file).parent_path(), error);
    if (error)
        return error.value();
    std::ofstream stream(file);
    stream << limitMib << "\n";
    stream.close();
    if (!stream)
        return EIO;
    file_ = file;
    readLimit();
    return 0;
}

void UsbfsMemory::readLimit()
{
    uint64_t mebibytes = 0;
    if (std::ifstream(file_) >> mebibytes)
        limitBytes_ = mebibytes << 20U;
}

std::unique_ptr<UsbfsMemory::Charge> UsbfsMemory::charge(size_t length)
{
    const uint64_t cost = costOf(length);
    const std::lock_guard held(mutex_);
    const auto fits = [&] { return limitBytes_ == 0 || usedBytes_ + cost <= limitBytes_; };
    if (!fits())
        readLimit();  // it may have been raised; looking each time would take too long
    if (!fits())
        return nullptr;
    usedBytes_ += cost;
    return std::make_unique<Charge>(*this, cost);
}

void UsbfsMemory::giveBack(uint64_t bytes)
{
    const std::lock_guard held(mutex_);
    usedBytes_ -= bytes;
}

}  // namespace vornsim
