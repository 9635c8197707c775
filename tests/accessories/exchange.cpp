// SPDX-License-Identifier: MIT
#include "exchange.h"

#include <sstream>

#include "family_steps.h"

namespace vorntest {

EquippedCamera::EquippedCamera(CAMERA_TYPE type) : OpenedCamera(type)
{
    camera.hasFilterWheel = camera.hasGuidePort = camera.hasGPIO = camera.hasShutter = true;
    camera.cooler = COOLER_SETPOINT;
    camera.tempSensorCount = 0x300;
    camera.tempSensorType = 1;
    camera.minCoolerPower = 10;
    camera.maxCoolerPower = 210;
}

Steps Exchange::steps(long pauseUs) const
{
    Steps usb;
    std::istringstream all(commands);
    for (std::string hex; std::getline(all, hex, '|');) {
        if (usb.size() != 0)
            usb.pause(5000);
        if (type == ADVANCED)
            advancedCommand(usb, hex, reply);
        else if (type == QUICKER)
            spiWrite(usb, hex);
        else
            type == STANDARD ? usb.command(hex) : classicCommand(usb, hex);
    }
    if (type == ADVANCED || reply.empty())
        return usb;
    if (pauseUs != 0)
        usb.pause(pauseUs);
    return usb.parIn(static_cast<unsigned>(parseHex(reply).size()), reply);
}

void expectExchanges(const char* error, const std::vector<Exchange>& exchanges, long pauseUs)
{
    for (const Exchange& row : exchanges) {
        SCOPED_TRACE(testing::Message() << "type " << row.type << ": " << row.commands << ", " << row.reply);
        forEachFailure(row.steps(pauseUs), [&](const Steps& steps, bool ok) {
            for (const COOLER_TYPE cooler : {COOLER_ONOFF, COOLER_SELECTPOWER, COOLER_SETPOINT}) {  // all alike
                EquippedCamera equipped(row.type);
                equipped.camera.cooler = cooler;
                equipped.usb.append(steps);
                EXPECT_EQ(row.act(equipped.camera), ok && row.agreed);
                equipped.expectSettled(ok && row.agreed ? "No error" : error);
            }
        });
    }
}

void expectRefused(const std::vector<CAMERA_TYPE>& families, const Operation& act, const char* error)
{
    for (const CAMERA_TYPE type : families) {
        SCOPED_TRACE(std::string(error) + ", type " + std::to_string(type));
        EquippedCamera equipped(type);
        EXPECT_FALSE(act(equipped.camera));
        equipped.expectSettled(error);
    }
}

void expectRefusedUnequipped(const Operation& act, const char* error)
{
    for (const COOLER_TYPE cooler : {COOLER_NONE, COOLER_ALWAYSON}) {
        OpenedCamera bare;
        bare.camera.cooler = cooler;
        bare.camera.lock();  // a refusal does not wait for it
        EXPECT_FALSE(act(bare.camera));
        bare.camera.unlock();
        bare.expectSettled(error);
    }
}

}  // namespace vorntest
