// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

namespace vornsim {

/// The memory that all programs together may use for transfers under way, as usbfs limits it. Safe to use from several
/// threads.
class UsbfsMemory {
public:
    /// Gives back what it was charged when it goes.
    class Charge {
    public:
        Charge(UsbfsMemory& memory, uint64_t bytes) : memory_(memory), bytes_(bytes) {}
        ~Charge() { memory_.giveBack(bytes_); }
        Charge(const Charge&) = delete;
        Charge& operator=(const Charge&) = delete;

    private:
        UsbfsMemory& memory_;
        uint64_t bytes_;
    };

    /// Sets the limit in MiB, 0 for none, and writes it into @p file, which stands for the kernel's parameter file.
    /// What a program writes there holds from then on. @return 0 or an errno.
    int start(const std::string& file, unsigned limitMib);

    /// Charges a transfer of @p length bytes with what the kernel needs for it. @return null when that is too much.
    std::unique_ptr<Charge> charge(size_t length);

private:
    void readLimit();
    void giveBack(uint64_t bytes);

    std::mutex mutex_;
    std::string file_;
    uint64_t limitBytes_ = 0;
    uint64_t usedBytes_ = 0;
};

}  // namespace vornsim
