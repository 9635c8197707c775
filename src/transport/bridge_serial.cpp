// SPDX-License-Identifier: MIT
// The bridge's serial buses: I2C with the configuration EEPROM, and SPI.
#include "lifecycle/camera_impl.h"
#include "trace/trace.h"
#include "transport/bridge.h"
#include "transport/heap_bytes.h"

#include <cstring>
#include <limits>

using namespace vornccd;

bool VornCameraImpl::i2cSetSpeed(unsigned speed)
{
    TRACE_ENTER("%s-> VornCameraImpl::i2cSetSpeed(%d)\n", speed);
    const bool ok = bulkTransfer(BRIDGE_I2C_SPEED, false, speed, 0, 0, nullptr, nullptr, 0, 0);
    TRACE_EXIT("%s<- VornCameraImpl::i2cSetSpeed %d\n", ok);
    return ok;
}

bool VornCameraImpl::i2cWrite(unsigned address, const uint8_t* data, unsigned n)
{
    TRACE_ENTER("%s-> VornCameraImpl::i2cWrite(%d, %s, %d)\n", address, _d(data, n), n);
    bool ok = false;
    HeapBytes payload = uninitialisedBytes(uint64_t{n} + 1);
    if (payload && n < std::numeric_limits<unsigned>::max()) {
        payload[0] = static_cast<uint8_t>(address << 1);
        if (n != 0)
            std::memcpy(&payload[1], data, n);
        ok = bulkTransfer(BRIDGE_I2C, true, 0, 0, 1, payload.get(), nullptr, n + 1, 0);
    }
    TRACE_EXIT("%s<- VornCameraImpl::i2cWrite %d\n", ok);
    return ok;
}

bool VornCameraImpl::i2cRead(unsigned address, uint8_t* buffer, unsigned n)
{
    TRACE_ENTER("%s-> VornCameraImpl::i2cRead(%d, ..., %d)\n", address, n);
    const auto payload = static_cast<uint8_t>((address << 1) + 1);
    const bool ok = bulkTransfer(BRIDGE_I2C, true, 0, 0, 1, &payload, buffer, 1, n);
    TRACE_EXIT("%s<- VornCameraImpl::i2cRead %d %s\n", ok, _d(buffer, n));
    return ok;
}

bool VornCameraImpl::eepRead(unsigned address, uint8_t* buffer, unsigned n)
{
    TRACE_ENTER("%s-> VornCameraImpl::eepRead(%d, ..., %d)\n", address, n);
    // deliberate: the high byte of the word address is always 0, so address 1000 reads from 232.
    const uint8_t wordAddress[2] = {0x00, static_cast<uint8_t>(address & 0xFF)};
    const bool ok = i2cWrite(I2C_EEPROM, wordAddress, sizeof wordAddress) && i2cRead(I2C_EEPROM, buffer, n);
    TRACE_EXIT("%s<- VornCameraImpl::eepRead %d %s\n", ok, _d(buffer, n));
    return ok;
}

bool VornCameraImpl::spiInit()
{
    TRACE_ENTER("%s-> VornCameraImpl::spiInit()\n");
    // Port 0, bits 5 to 7: data, clock, select; the clock rests high for QUICKER, low for ADVANCED.
    uint8_t idle = 0;
    switch (type) {
        case QUICKER:
            idle = 0xC0;
            break;
        case ADVANCED:
            idle = 0x80;
            break;
        case CLASSIC:
        case STANDARD:
        case IIDC:
            assertionFailed("Assertion failed (%s, %d)\n", 564);
    }
    const PortBlock block = portBlock(0, 0x1F, idle);
    std::array<uint8_t, 16> state = {};
    std::memcpy(state.data(), block.data(), block.size());
    const PortBlock direction = portBlock(0, 0x0F, 0xE0);
    bool ok = bulkTransfer(BRIDGE_SET_PORT_STATE, false, 0, 0, 0, state.data(), nullptr, state.size(), 0);
    ok = ok && bulkTransfer(BRIDGE_SET_PORT_DIRECTION, false, 0, 0, 0, direction.data(), nullptr, direction.size(), 0);
    TRACE_EXIT("%s<- VornCameraImpl::spiInit %d\n", ok);
    return ok;
}

bool VornCameraImpl::spiWrite(unsigned channel, unsigned value)
{
    TRACE_ENTER("%s-> VornCameraImpl::spiWrite(%d, 0x%02x)\n", channel, value);
    if (type != QUICKER)
        assertionFailed("Assertion failed (%s, %d)\n", 586);
    const uint8_t word[2] = {static_cast<uint8_t>((value >> 8 & 0x0F) | channel << 4),
                             static_cast<uint8_t>(value & 0xFF)};
    uint8_t answer[2];  // carries nothing
    const bool ok = bulkTransfer(BRIDGE_SPI, false, 1, 0, 1, word, answer, sizeof word, sizeof answer);
    TRACE_EXIT("%s<- VornCameraImpl::spiWrite %d\n", ok);
    return ok;
}
