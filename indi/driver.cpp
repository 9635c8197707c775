// SPDX-License-Identifier: MIT
// The driver's process: it makes a device for each camera, watches the USB bus for more, and stops them all at its end.
// INDI's library has main() and hands requests to the devices that there are.
#include <dirent.h>
#include <eventloop.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "camera_names.h"
#include "capture/camera_list.h"
#include "capture/trace_capture.h"
#include "event_loop.h"
#include "vorn_ccd.h"

namespace vornindi {
namespace {

constexpr int BUS_PERIOD_MS = 1000;
constexpr std::chrono::milliseconds RELEASE_LIMIT{1800};

/// @return the USB devices that there are, as a text that differs when one came or went.
std::string busContents()
{
    const std::string folder = "/sys/bus/usb/devices/";
    const std::unique_ptr<DIR, int (*)(DIR*)> open(opendir(folder.c_str()), closedir);
    std::vector<std::string> devices;
    while (const dirent* entry = open ? readdir(open.get()) : nullptr) {
        const std::string name = static_cast<const char*>(entry->d_name);
        std::ifstream file(folder + name + "/devnum");
        std::string number;
        std::getline(file, number);
        devices.push_back(name + ":" + number + "\n");
    }
    std::sort(devices.begin(), devices.end());
    std::string contents;
    for (const std::string& device : devices)
        contents += device;
    return contents;
}

class Driver {
public:
    Driver()
    {
        (void)vorncapture::TraceCapture().finish();  // takes its place before there are other threads
        startEventQueue();
        addNewCameras();
        addTimer(BUS_PERIOD_MS, watchBus, this);
    }

    /// Stops all cameras and ends the process.
    [[noreturn]] void stop()
    {
        // Shared with threads that may come too late.
        struct Count {
            std::mutex mutex;
            std::condition_variable changed;
            size_t left = 0;
        };
        const auto count = std::make_shared<Count>();
        count->left = devices_.size();
        for (const auto& [name, device] : devices_)
            device->release([count] {
                const std::lock_guard guard(count->mutex);
                --count->left;
                count->changed.notify_all();
            });
        std::unique_lock guard(count->mutex);
        (void)count->changed.wait_for(guard, RELEASE_LIMIT, [&] { return count->left == 0; });
        // No other thread is waited for: one may be in a call on a camera that does not answer.
        _exit(0);
    }

    Driver(const Driver&) = delete;
    Driver& operator=(const Driver&) = delete;

private:
    static void watchBus(void* self)
    {
        auto* driver = static_cast<Driver*>(self);
        if (busContents() != driver->bus_)
            driver->addNewCameras();
        addTimer(BUS_PERIOD_MS, watchBus, self);
    }

    void addNewCameras()
    {
        bus_ = busContents();
        for (const auto& [name, device] : devices_)
            device->busChanged();
        std::map<std::string, std::vector<std::string>> ports;
        std::map<std::string, size_t> counts;
        const auto cameras = vorncapture::listCameras();
        for (size_t index = 0; index < cameras.size(); ++index) {
            const std::string model = cameras[index]->getName();
            if (++counts[model] == 1) {
                for (const auto& node : vorncapture::nodesOfCamera(static_cast<int>(index)))
                    ports[model].push_back(node.port);
            }
        }
        for (const auto& [model, count] : counts) {
            for (const std::string& name : names_.namesFor(model, count, ports[model]))
                add(name);
        }
    }

    void add(const std::string& name)
    {
        auto& device = devices_[name];
        if (device != nullptr)
            return;
        device = new VornCcd(names_, name, [this](const std::string& other) { add(other); });
        device->ISGetProperties(nullptr);  // shows it to clients that have asked before
    }

    CameraNames names_;
    std::map<std::string, VornCcd*> devices_;  ///< never destroyed: threads of theirs may outlive all else
    std::string bus_;
};

Driver* driver = nullptr;

/// Runs whenever the process ends by itself: at the end of its input, and after a signal.
void stopDriver()
{
    driver->stop();
}

void startDriver(void* /*unused*/)
{
    driver = new Driver;  // never destroyed: threads may outlive all else
    (void)std::atexit(stopDriver);
}

// Before main() other parts of the program may not be ready; the event loop is the first to run after it has begun.
[[maybe_unused]] const int STARTED = addTimer(0, startDriver, nullptr);

}  // namespace
}  // namespace vornindi
