// SPDX-License-Identifier: MIT
// Takes a picture in one thread while another one watches the sensor's temperature: what a program with a window does.
//     c++ -std=c++20 watch_temperature.cpp -o watch_temperature $(pkg-config --cflags --libs vornccd)
//     ./watch_temperature 10 m31.pgm
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <thread>

#include "camera.h"

namespace {

/// Asks for the temperature once a second until it goes. The camera's lock lets one call through at a time, so a
/// reading that falls into the readout comes when the image is there; nothing else has to be done for it.
class TemperatureWatch {
public:
    explicit TemperatureWatch(VornCamera& camera) : camera_(camera), thread_([this] { watch(); }) {}
    ~TemperatureWatch()
    {
        {
            const std::lock_guard lock(mutex_);
            over_ = true;
        }
        wakeUp_.notify_one();
        thread_.join();
    }
    TemperatureWatch(const TemperatureWatch&) = delete;
    TemperatureWatch& operator=(const TemperatureWatch&) = delete;

private:
    void watch()
    {
        std::unique_lock lock(mutex_);
        while (!over_) {
            lock.unlock();  // the camera may keep a call waiting; whoever ends the watch must not wait for the mutex
            float celsius = 0.0F;
            if (camera_.getTemperatureSensorStatus(1, &celsius))
                std::cerr << "sensor at " << celsius << " degrees\n";
            else
                std::cerr << "no temperature: " << camera_.getLastError() << "\n";
            lock.lock();
            wakeUp_.wait_for(lock, std::chrono::seconds(1), [this] { return over_; });
        }
    }

    VornCamera& camera_;
    std::mutex mutex_;
    std::condition_variable wakeUp_;
    bool over_ = false;
    std::thread thread_;  // last: it uses all the others
};

}  // namespace

int main(int argc, char** argv)
{
    const double seconds = argc == 3 ? std::atof(argv[1]) : 0.0;
    if (seconds <= 0.0) {
        std::cerr << "usage: watch_temperature SECONDS FILE.pgm\n";
        return 2;
    }
    const CameraPointer camera = openFirstCamera();
    if (!camera)
        return 1;
    std::optional<Picture> picture;
    {
        const TemperatureWatch watch(*camera);  // gone before the camera is closed, which waits for nobody
        picture = takePicture(*camera, seconds);
    }
    if (!picture || !writePgm(*picture, argv[2])) {
        std::cerr << camera->getName() << ": " << (picture ? "could not write the file" : camera->getLastError())
                  << "\n";
        return 1;
    }
    std::cout << argv[2] << ": " << picture->width << " x " << picture->height << "\n";
    return 0;
}
