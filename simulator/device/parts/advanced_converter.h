// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>

namespace vornsim {

/// Amplifier and converter of an ADVANCED camera, with the record that a host reads and writes back.
///
/// | Offset | Size | Record, big-endian                                                  |
/// |--------|------|---------------------------------------------------------------------|
/// | 0      | 2    | 88; byte 0 is 1 while the converter is read back                    |
/// | 2      | 2    | calibration of the first half, not for hosts                        |
/// | 4      | 2    | gain of ordinary readout, 0 to 63                                   |
/// | 6      | 2    | offset code of ordinary readout                                     |
/// | 8      | 8    | the same for preview readout                                        |
///
/// Offset codes 256 to 512 stand for offsets 256 down to 0, codes 0 to 255 for offsets 257 to 512.
class AdvancedConverter {
public:
    static constexpr size_t RECORD_LENGTH = 16;
    static constexpr size_t UPDATE_LENGTH = 18;
    using Record = std::array<uint8_t, RECORD_LENGTH>;

    /// What one kind of readout uses.
    struct Setting {
        unsigned gain = 0;
        unsigned offset = 256;
    };

    /// @return the record, or, while the converter is still being read back, one whose first byte is 1 and the rest
    /// unspecified. That happens for a few reads after each change, and now and then besides.
    Record read();

    /// Takes a changed record, after its two leading bytes 0, 25. @return what is wrong with it, or an empty text.
    std::string update(std::span<const uint8_t> bytes);

    /// Keeps the settings and makes the next reads find the converter busy, as after power-up.
    void restart() { busyReads_ = BUSY_READS; }

    const Setting& setting(bool preview) const { return settings_[preview ? 1 : 0]; }

    /// How much a gain amplifies: 1 at gain 0, 6 at gain 63.
    static double amplification(unsigned gain);

private:
    static constexpr unsigned BUSY_READS = 3;
    static constexpr unsigned BUSY_EVERY = 9;  // reads

    std::array<Setting, 2> settings_;
    unsigned busyReads_ = BUSY_READS;
    unsigned reads_ = 0;
};

}  // namespace vornsim
