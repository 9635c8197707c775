// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <memory>
#include <string_view>

#include <gtest/gtest.h>

#include "camera_impl.h"
#include "device/families/camera_catalogue.h"
#include "simulated.h"

namespace vorntest {

/// A closed camera object whose device is simulated, in virtual time. Programs that use it link vornsim_device.
/// Reset the bus before the first one.
struct SimulatedCamera {
    using Make = std::unique_ptr<vornsim::SimulatedCamera> (*)(const vornsim::ModelInfo&, const vornsim::CameraOptions&,
                                                               const vornsim::Clock&, vornsim::DeviceLog&);

    /// @param name display name of the model, "Vorn K12"
    /// @param make what serves USB in front of it: the native bridge, or an emulated chip
    explicit SimulatedCamera(const char* name, vornsim::SceneKind scene = vornsim::SceneKind::RAMP,
                             Make make = vornsim::makeCamera)
        : model(vornsim::findModel(name)),
          simulated(make(*model, {.seed = 7, .scene = scene}, clock, log)),
          usb(*simulated),
          device(model->productId, usb),
          camera(&device, model->name, type())
    {
    }

    /// @return the family as the library numbers it.
    CAMERA_TYPE type() const
    {
        const std::string_view families[] = {"", "CLASSIC", "STANDARD", "QUICKER", "IIDC", "ADVANCED"};
        return static_cast<CAMERA_TYPE>(
            std::find(families, std::end(families), std::string_view(familyName(model->family))) - families);
    }
    /// @return whether nobody holds the camera's lock.
    bool lockFree() { return pthread_mutex_trylock(&camera.mutex) == 0 && pthread_mutex_unlock(&camera.mutex) == 0; }
    /// Fails the test for everything the simulated firmware could not understand.
    void expectNoComplaints() const
    {
        for (const std::string& complaint : log.complaints)
            ADD_FAILURE() << model->name << " complains: " << complaint;
    }

    const vornsim::ModelInfo* model;
    BusClock clock;
    CollectedLog log;
    std::unique_ptr<vornsim::SimulatedCamera> simulated;
    SimulatedUsb usb;
    libusb_device device;
    VornCameraImpl camera;
};

}  // namespace vorntest
