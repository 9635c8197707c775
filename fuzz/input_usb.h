// SPDX-License-Identifier: MIT
#pragma once

#include <csetjmp>

#include "bus.h"
#include "input.h"

namespace vornfuzz {

/// A device that sends whatever the input says and takes whatever it gets.
///
/// A read takes a status byte from the input, for some a length, and up to 256 bytes of data; zeros follow. Everything
/// sent is taken without a look, so that all of the input goes into answers. A used up input, or too many transfers,
/// unplug the device.
class InputUsb : public vorntest::Backend {
public:
    explicit InputUsb(Input& input) : input_(input) {}

    int serve(const vorntest::BusCall& call, std::span<uint8_t> data, int& transferred) override;

    int driverActive = 0;  ///< answers of the calls before the first transfer
    int claimResult = 0;
    int altSettingResult = 0;

    /// Status bytes from here on fail.
    static constexpr uint8_t FAILED = 0xE0;
    static constexpr size_t LARGEST_DATA_LENGTH = 256;

private:
    int receive(std::span<uint8_t> data, int& transferred);

    Input& input_;
    bool gone_ = false;
    int callCount_ = 0;
    int openingCount_ = 0;
    int nextSent_ = 0;  ///< error of the next transfer to the device, 0 for none
};

/// Where exit() goes while armed: the library's documented assertions end the run, not the program.
extern jmp_buf exitPoint;
extern bool exitArmed;

}  // namespace vornfuzz
