// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <span>
#include <vector>

#include "chip_time.h"

namespace vornsim {

/// One large endpoint of the chip with its two buffers, of which the host, the core and the waveform engine each own
/// some at any moment. All lengths are in bytes.
class ChipEndpoint {
public:
    static constexpr size_t BUFFERS = 2;
    static constexpr size_t BUFFER_LENGTH = 512;
    using Packet = std::vector<uint8_t>;

    /// @p faults must outlive the endpoint. @param packetLength 512 at high speed, 64 at full speed
    ChipEndpoint(FaultSink& faults, bool in, size_t packetLength)
        : faults_(faults), in_(in), packetLength_(packetLength)
    {
    }

    /// Every buffer becomes empty and belongs to the core; an OUT endpoint is not armed then.
    void reset();

    /// @return whether the core finds nothing to read (OUT), or all that it committed was fetched (IN).
    bool empty() const { return automatic_ || packets_.empty(); }
    /// @return whether the core can commit no packet (IN), or both buffers hold one (OUT).
    bool full() const { return packets_.size() == BUFFERS; }

    // ---- The core's side ----

    /// The buffer that the core sees.
    uint8_t read(size_t offset) const;
    void write(size_t offset, uint8_t value);
    /// Length of the packet that the core sees (OUT), or that the waveform engine has put together (IN).
    size_t byteCount() const;
    /// OUT: gives a buffer to the host, the one with the oldest packet if there is one.
    void arm();
    /// IN: gives the first @p length bytes of the buffer to the host.
    void commit(size_t length);
    /// OUT: packets go to the waveform engine without the core (AUTOOUT). Turning it on arms what is not armed.
    void setAutomatic(bool on);

    // ---- The waveform engine's side ----

    /// @return bytes that an automatic OUT endpoint holds for the engine.
    size_t waitingBytes() const;
    /// @return the word that the engine would take next; 0 when there is none.
    uint16_t nextWord() const;
    void takeWord();
    void putWord(uint16_t word);

    // ---- The host's side ----

    bool acceptsPacket() const { return armed_ > 0; }
    void receive(std::span<const uint8_t> packet);
    /// @return the packet that the host gets next, or null.
    const Packet* offered() const { return in_ && !packets_.empty() ? &packets_.front() : nullptr; }
    void fetched() { packets_.pop_front(); }
    size_t packetLength() const { return packetLength_; }

private:
    FaultSink& faults_;
    bool in_;
    size_t packetLength_;
    std::deque<Packet> packets_;  // OUT: received, IN: committed
    size_t armed_ = 0;            // OUT: buffers that wait for the host
    bool automatic_ = false;
    size_t position_ = 0;                           // automatic OUT: bytes taken of the oldest packet
    std::array<uint8_t, BUFFER_LENGTH> filling_{};  // IN: the buffer that is put together
    size_t filled_ = 0;                             // by the waveform engine
};

}  // namespace vornsim
