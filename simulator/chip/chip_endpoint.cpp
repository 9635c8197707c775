// SPDX-License-Identifier: MIT
#include "chip_endpoint.h"

#include <algorithm>

namespace vornsim {

void ChipEndpoint::reset()
{
    packets_.clear();
    armed_ = 0;
    position_ = 0;
    filled_ = 0;
}

uint8_t ChipEndpoint::read(size_t offset) const
{
    if (in_)
        return filling_[offset % BUFFER_LENGTH];
    if (packets_.empty() || automatic_ || offset >= packets_.front().size()) {
        faults_.fault("the core reads an endpoint buffer where there is no data");
        return 0xFF;
    }
    return packets_.front()[offset];
}

void ChipEndpoint::write(size_t offset, uint8_t value)
{
    if (!in_ || full())
        faults_.fault("the core writes to an endpoint buffer that is not its own");
    else
        filling_[offset % BUFFER_LENGTH] = value;
}

size_t ChipEndpoint::byteCount() const
{
    if (in_)
        return filled_;
    return packets_.empty() || automatic_ ? 0 : packets_.front().size();
}

void ChipEndpoint::arm()
{
    if (!packets_.empty() && !automatic_)
        packets_.pop_front();
    if (armed_ + packets_.size() == BUFFERS)
        faults_.fault("an endpoint is armed more often than it has buffers");
    else
        ++armed_;
}

void ChipEndpoint::commit(size_t length)
{
    if (full() || length > packetLength_) {
        faults_.fault(full() ? "a packet is committed without a free buffer"
                             : "a packet is longer than the endpoint's");
        return;
    }
    packets_.emplace_back(filling_.begin(), filling_.begin() + static_cast<std::ptrdiff_t>(length));
    filled_ = 0;
}

void ChipEndpoint::setAutomatic(bool on)
{
    if (on && !automatic_)
        armed_ = BUFFERS - packets_.size();
    automatic_ = on;
}

size_t ChipEndpoint::waitingBytes() const
{
    size_t bytes = 0;
    for (const Packet& packet : packets_)
        bytes += packet.size();
    return automatic_ ? bytes - position_ : 0;
}

uint16_t ChipEndpoint::nextWord() const
{
    if (waitingBytes() == 0)
        return 0;
    const Packet& packet = packets_.front();
    const unsigned high = position_ + 1 < packet.size() ? packet[position_ + 1] : 0U;
    return static_cast<uint16_t>(packet[position_] | high << 8);
}

void ChipEndpoint::takeWord()
{
    if (waitingBytes() == 0) {
        faults_.fault("the waveform engine takes a word from an empty FIFO");
        return;
    }
    position_ = std::min(position_ + 2, packets_.front().size());
    if (position_ == packets_.front().size()) {
        packets_.pop_front();
        position_ = 0;
        ++armed_;
    }
}

void ChipEndpoint::putWord(uint16_t word)
{
    if (full() || filled_ + 2 > packetLength_) {
        faults_.fault("FIFO overrun: the waveform engine has more words than the endpoint has room");
        return;
    }
    filling_[filled_++] = static_cast<uint8_t>(word & 0xFF);
    filling_[filled_++] = static_cast<uint8_t>(word >> 8);
}

void ChipEndpoint::receive(std::span<const uint8_t> packet)
{
    --armed_;
    packets_.emplace_back(packet.begin(), packet.end());
    if (automatic_ && packet.empty()) {  // nothing for the engine: the buffer is free at once
        packets_.pop_back();
        ++armed_;
    }
}

}  // namespace vornsim
