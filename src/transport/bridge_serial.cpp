// SPDX-License-Identifier: MIT
// The bridge's serial buses: I2C with the configuration EEPROM, and SPI.
#include "camera_impl.h"
#include "family_facts.h"
#include "trace/trace.h"
#include "transport/bridge.h"
#include "transport/heap_bytes.h"

#include <cstring>
#include <limits>

using namespace vornccd;

namespace {

constexpr unsigned I2C_READ = 1;  // bit 0 of the address byte

// Port 0, bits 5 to 7: data, clock, select
constexpr uint8_t SPI_LINES = 0xE0;
constexpr uint8_t SPI_STATE_KEPT = 0x1F;
constexpr uint8_t SPI_DIRECTION_KEPT = 0x0F;

}  // namespace

bool VornCameraImpl::i2cSetSpeed(unsigned speed)
{
    TRACE_ENTER("%s-> VornCameraImpl::i2cSetSpeed(%d)\n", speed);
    const bool ok = exchange(*this, {.code = BRIDGE_I2C_SPEED, .subcode = speed});
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
        ok = exchange(*this, {.code = BRIDGE_I2C, .flag = true, .index = I2C_INDEX, .payload = {payload.get(), n + 1}});
    }
    TRACE_EXIT("%s<- VornCameraImpl::i2cWrite %d\n", ok);
    return ok;
}

bool VornCameraImpl::i2cRead(unsigned address, uint8_t* buffer, unsigned n)
{
    TRACE_ENTER("%s-> VornCameraImpl::i2cRead(%d, ..., %d)\n", address, n);
    const uint8_t payload[] = {static_cast<uint8_t>((address << 1) + I2C_READ)};
    const bool ok = exchange(
        *this, {.code = BRIDGE_I2C, .flag = true, .index = I2C_INDEX, .payload = payload, .reply = {buffer, n}});
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
    if (!factsOf(type).hasSpi)
        assertionFailed("Assertion failed (%s, %d)\n", 564);
    const PortStatePayload idle = portStatePayload(portBlock(0, SPI_STATE_KEPT, factsOf(type).spiIdle));
    const PortBlock outputs = portBlock(0, SPI_DIRECTION_KEPT, SPI_LINES);
    const bool ok = exchange(*this, {.code = BRIDGE_SET_PORT_STATE, .payload = idle}) &&
                    exchange(*this, {.code = BRIDGE_SET_PORT_DIRECTION, .payload = outputs});
    TRACE_EXIT("%s<- VornCameraImpl::spiInit %d\n", ok);
    return ok;
}

bool VornCameraImpl::spiWrite(unsigned channel, unsigned value)
{
    TRACE_ENTER("%s-> VornCameraImpl::spiWrite(%d, 0x%02x)\n", channel, value);
    if (!factsOf(type).hasSpiRegisters)
        assertionFailed("Assertion failed (%s, %d)\n", 586);
    const uint8_t word[2] = {static_cast<uint8_t>((value >> 8 & 0x0F) | channel << 4),
                             static_cast<uint8_t>(value & 0xFF)};
    uint8_t answer[2];  // carries nothing
    const bool ok = exchange(
        *this, {.code = BRIDGE_SPI, .subcode = SPI_REGISTER, .index = SPI_INDEX, .payload = word, .reply = answer});
    TRACE_EXIT("%s<- VornCameraImpl::spiWrite %d\n", ok);
    return ok;
}
