// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "usb_device.h"

namespace vornsim {

/// What a camera has for the bridge on the 16-bit parallel bus at some moment. The first byte of each pair is the low
/// half of a bus word.
struct OfferedWords {
    std::span<const uint8_t> bytes;  ///< whole words that are ready now; valid until the camera is called again
    int64_t moreAtUs = NEVER;        ///< clock time at which more will be ready, as far as the camera knows
};

/// Arguments of an SPI exchange as the host gave them to the bridge.
struct SpiSelection {
    uint8_t subCode = 0;  ///< 1: register writes of two bytes (QUICKER); 2: command exchange (ADVANCED)
    uint16_t value = 0;   ///< 0 with sub-code 1, 3 with sub-code 2
    uint16_t index = 0;   ///< always 1
};

/// State of one 8-bit port of the bridge, as the host set it.
struct PortLines {
    uint8_t latch = 0;      ///< levels that output pins drive
    uint8_t direction = 0;  ///< 1: output
};

/// What hangs on the bridge of a camera: its controller, sensor electronics and accessories. The bridge calls it while
/// it serves requests of the host; every default is that of pins that nothing is connected to. Times are clock times
/// in microseconds.
class BridgePeripheral {
public:
    virtual ~BridgePeripheral() = default;

    /// The bridge's firmware was (re)started: whatever the host had asked for before is forgotten on the bridge.
    virtual void bridgeStarted() {}

    /// @return whether the camera's bus understands transfers made with this waveform table (152 or 172 bytes). With
    /// one that it does not understand no word passes in either direction.
    virtual bool understandsWaveform(std::span<const uint8_t> table) const
    {
        (void)table;
        return true;
    }

    /// Words the camera has ready at @p nowUs, from the oldest on. Nothing is taken by this call.
    virtual OfferedWords offeredWords(int64_t nowUs)
    {
        (void)nowUs;
        return {};
    }

    /// The bridge has taken the first @p byteCount bytes (even) of what was offered.
    virtual void wordsTaken(size_t byteCount) { (void)byteCount; }

    /// The host wrote these bytes to the parallel bus (an even count; the bridge pads a single byte with 0).
    virtual void wordsReceived(std::span<const uint8_t> bytes) { (void)bytes; }

    /// One SPI exchange: @p out travels to the camera while @p in comes back (possibly longer or shorter; filled with
    /// 0xFF before). @return the clock time at which the exchange is over; anything in the past means at once.
    virtual int64_t spiExchange(const SpiSelection& selection, std::span<const uint8_t> out, std::span<uint8_t> in)
    {
        (void)selection, (void)out, (void)in;
        return 0;
    }

    /// I2C write to a 7-bit address other than the configuration EEPROM's. @return true when the slave acknowledged.
    virtual bool i2cWrite(uint8_t address, std::span<const uint8_t> data)
    {
        (void)address, (void)data;
        return false;
    }

    /// I2C read; @p data is filled with 0xFF before. @return true when the slave acknowledged its address.
    virtual bool i2cRead(uint8_t address, std::span<uint8_t> data)
    {
        (void)address, (void)data;
        return false;
    }

    /// The host wrote the state or direction of port 0 to 4 (line L is bit L & 7 of port L >> 3). Called after each
    /// request for each port whose latch or direction changed.
    virtual void portChanged(unsigned port, const PortLines& lines) { (void)port, (void)lines; }

    /// @return the levels that the camera drives on port @p port; only pins that are inputs of the bridge are read.
    virtual uint8_t portInputs(unsigned port)
    {
        (void)port;
        return 0xFF;
    }
};

}  // namespace vornsim
