// SPDX-License-Identifier: MIT
#pragma once

#include <indiccd.h>
#include <indifilterinterface.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "camera_names.h"
#include "capture/accessories.h"
#include "capture/cancel_token.h"
#include "capture/fits_writer.h"
#include "capture/frame.h"
#include "capture/session.h"
#include "guider.h"
#include "job_lane.h"

namespace vornindi {

/// One camera as INDI clients see it. Properties are touched in the event loop only, and no call there waits for the
/// camera: what takes time is done in the threads of two lanes and of the guider, which report back with
/// runInEventLoop(). What comes back after the camera was let go, or after an exposure was stopped, is dropped.
class VornCcd : public INDI::CCD, public INDI::FilterInterface {
public:
    /// @param name of the device, for good
    /// @param addDevice is told the name of a camera that was found in this one's place, so that it gets a device
    VornCcd(CameraNames& names, const std::string& name, std::function<void(const std::string&)> addDevice);

    bool initProperties() override;
    bool updateProperties() override;
    bool ISNewNumber(const char* dev, const char* name, double values[], char* names[], int n) override;
    bool ISNewSwitch(const char* dev, const char* name, ISState* states, char* names[], int n) override;
    bool ISNewText(const char* dev, const char* name, char* texts[], char* names[], int n) override;

    /// Stops whatever the camera does: exposure, shutter, relays. Returns at once.
    /// @param released called in another thread when that is done
    void release(const std::function<void()>& released = {});

    /// Notes that devices came to the USB bus or went.
    void busChanged() { checkPresence_ = true; }

protected:
    const char* getDefaultName() override { return name_.c_str(); }
    bool Disconnect() override;
    void TimerHit() override;
    void debugTriggered(bool enable) override;
    void simulationTriggered(bool enable) override;
    bool saveConfigItems(FILE* file) override;

    bool StartExposure(float duration) override;
    bool AbortExposure() override;
    bool UpdateCCDFrame(int x, int y, int width, int height) override;
    bool UpdateCCDBin(int binX, int binY) override;
    bool SetCaptureFormat(uint8_t index) override;
    void UploadComplete(INDI::CCDChip* chip) override;
    void addFITSKeywords(INDI::CCDChip* chip) override;

    int SetTemperature(double celsius) override;
    int QueryFilter() override;
    bool SelectFilter(int position) override;

private:
    /// An exposure under way. What was stopped is no longer the current one.
    struct Exposure {
        vorncapture::ExposureRequest request;
        std::string imageType;
        std::optional<unsigned int> filter;
        vorncapture::CancelToken cancel;
        std::atomic<double> endsAt{0.0};  ///< steady seconds; 0: not known
    };
    using SessionPointer = std::shared_ptr<vorncapture::Session>;
    using ExposurePointer = std::shared_ptr<Exposure>;

    struct Opened {
        SessionPointer session;
        vorncapture::WheelStatus wheel;  ///< where there is one
    };

    // vorn_ccd.cpp: connecting, and what clients may ask for
    void beginConnect();
    void finishConnect(const vorncapture::Result<Opened>& opened);
    void learnCamera();
    void addCaptureFormats();
    void showOwnProperties();
    void hideOwnProperties();
    void report(const vorncapture::Error& error);
    void lose(const vorncapture::Error& error);
    void forgetCamera();
    bool refuse(const char* name, const std::string& why);
    std::optional<std::string> objection(const INDI::PropertyNumber& property, const double* values, char** names,
                                         int count);
    void whileConnected(unsigned int connection, std::function<void()> work);

    // vorn_exposure.cpp
    void takePicture(unsigned int connection, const SessionPointer& session, const ExposurePointer& exposure);
    void tellProgress(unsigned int connection, const ExposurePointer& exposure, double elapsed, double total,
                      int& told);
    void deliver(unsigned int connection, const ExposurePointer& exposure, vorncapture::Frame frame);
    void failExposure(const ExposurePointer& exposure, const vorncapture::Error& error);
    void waitForUpload();
    vorncapture::ExposureRequest requestFor(int x, int y, int width, int height, int binX, int binY) const;
    bool checkGeometry(int x, int y, int width, int height, int binX, int binY);
    void showBayer();

    // vorn_accessories.cpp
    bool guide(const char* name, const double* values, char** names, int count);
    void pulseEnded(Guider::Axis axis, unsigned int number, const std::optional<vorncapture::Error>& error);
    void clearPulse(Guider::Axis axis);
    bool setGain(const char* name, double value);
    bool switchCooler(bool on);
    void poll();
    std::optional<vorncapture::Error> examinePresence(vorncapture::Session& session, const ExposurePointer& exposure);
    void showTelemetry(const vorncapture::Telemetry& telemetry);
    bool hasThermometer() const;
    bool hasCooler() const;

    CameraNames& names_;
    const std::string name_;
    const std::function<void(const std::string&)> addDevice_;
    unsigned int connection_ = 0;  ///< number of the connection; raised when one ends or is given up
    bool connecting_ = false;
    SessionPointer session_;
    vorncapture::CameraInfo info_;

    JobLane sequence_;  ///< what must not happen at the same time: opening, exposing, turning the wheel
    JobLane commands_;  ///< what may happen during an exposure
    Guider guider_;

    ExposurePointer exposure_;
    bool eightBit_ = false;
    std::mutex uploadMutex_;  ///< guards the next three
    std::condition_variable uploaded_;
    bool uploading_ = false;
    std::vector<vorncapture::FitsCard> header_;  ///< of the picture in the frame buffer

    std::array<unsigned int, 2> pulseNumbers_{};
    std::atomic<bool> polling_{false};
    std::atomic<bool> checkPresence_{false};
    std::atomic<unsigned int> settings_{0};  ///< counts what clients set, so that older readings are known
    std::optional<double> target_;           ///< of the cooler, as last asked for

    ISwitch coolerS_[2]{};
    ISwitchVectorProperty coolerSP_{};
    INumber coolerPowerN_[1]{};
    INumberVectorProperty coolerPowerNP_{};
    INumber gainN_[1]{};
    INumberVectorProperty gainNP_{};
    INumber offsetN_[1]{};
    INumberVectorProperty offsetNP_{};
    ISwitch qualityS_[2]{};
    ISwitchVectorProperty qualitySP_{};
    IText cameraT_[3]{};
    ITextVectorProperty cameraTP_{};
    std::vector<INumber> sensorsN_;
    INumberVectorProperty sensorsNP_{};
};

}  // namespace vornindi
