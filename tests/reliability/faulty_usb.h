// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#include "bus.h"

namespace vorntest {

/// What can go wrong with one libusb call.
enum class Trouble {
    IO,
    NO_DEVICE,
    TIMEOUT,
    PIPE,
    OVERFLOW,
    NO_MEM,
    ONE_SHORT,      ///< the last byte is missing
    NOTHING_FIRST,  ///< no bytes and no error; the call after it works
    GARBAGE,        ///< random bytes received
    NO_ALLOCATION,  ///< not of a call: the library gets no memory
};
inline constexpr Trouble TROUBLES[] = {Trouble::IO,        Trouble::NO_DEVICE,     Trouble::TIMEOUT,
                                       Trouble::PIPE,      Trouble::OVERFLOW,      Trouble::NO_MEM,
                                       Trouble::ONE_SHORT, Trouble::NOTHING_FIRST, Trouble::GARBAGE};

/// @return whether a failure is noticed at once, as against wrong data.
constexpr bool isError(Trouble trouble)
{
    return trouble < Trouble::ONE_SHORT || trouble == Trouble::NO_ALLOCATION;
}
const char* nameOf(Trouble trouble);

/// A device whose calls go wrong from a chosen one on.
class FaultyUsb : public Backend {
public:
    explicit FaultyUsb(Backend& inner) : inner_(inner) {}

    /// The @p at-th call from here on goes wrong, or with @p forEver all from then on.
    void plan(Trouble trouble, uint64_t at, bool forEver);
    /// From here on all is well.
    void heal() { at_ = 0; }

    /// @return whether the trouble can befall a call of this kind.
    static bool applies(Trouble trouble, const BusCall& call);

    int serve(const BusCall& call, std::span<uint8_t> data, int& transferred) override;

    /// After so many hits the device is gone: what only an error may stop is stopped.
    uint64_t patience = 3000;
    bool opens = false;                        ///< libusb_open always works
    uint64_t callCount = 0;                    ///< countable calls since plan()
    uint64_t hitCount = 0;                     ///< of these that went wrong
    std::vector<BusCall>* recorded = nullptr;  ///< when set, receives the calls
    uintptr_t lowestStack = UINTPTR_MAX;       ///< of calls that went wrong
    uintptr_t highestStack = 0;

private:
    int spoil(const BusCall& call, std::span<uint8_t> data, int& transferred);

    Backend& inner_;
    Trouble trouble_ = Trouble::IO;
    uint64_t at_ = 0;
    bool forEver_ = false;
    bool hadNothing_ = false;
    uint32_t random_ = 1;
};

}  // namespace vorntest
