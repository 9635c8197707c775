// SPDX-License-Identifier: MIT
#include "simulated_camera.h"

#include <utility>

namespace vornsim {

Fx2Camera::Fx2Camera(uint16_t productId, const ConfigurationEeprom& eeprom,
                     std::unique_ptr<CameraApplication> application, const Clock& clock, DeviceLog& log)
    : eeprom_(eeprom), application_(std::move(application)), bridge_(productId, eeprom_, *application_, clock, log)
{
}

ControlResult Fx2Camera::control(const SetupPacket& setup, std::span<uint8_t> data)
{
    return bridge_.control(setup, data);
}

bool Fx2Camera::setInterface(unsigned interface, unsigned alternate)
{
    return bridge_.setInterface(interface, alternate);
}

BulkResult Fx2Camera::bulkOut(uint8_t endpoint, std::span<const uint8_t> data)
{
    return bridge_.bulkOut(endpoint, data);
}

BulkResult Fx2Camera::bulkIn(uint8_t endpoint, std::span<uint8_t> buffer)
{
    return bridge_.bulkIn(endpoint, buffer);
}

ConfigurationEeprom makeEeprom(const CameraModel& model, const CameraOptions& options)
{
    const uint16_t productId = model.eepromProductId != 0 ? model.eepromProductId : model.info.productId;
    ConfigurationEeprom eeprom(SIMULATED_VENDOR_ID, productId, serialNumber(model, options));
    if (model.info.colour)
        eeprom.setColourPattern(model.bayerCode);
    return eeprom;
}

}  // namespace vornsim
