// SPDX-License-Identifier: MIT
/// @file camera_impl.h
/// What hosts and the rooms of the library know of a camera: operations, named primitives, fields. Helpers belong to
/// the files that use them.
#pragma once

#include "readout_region.h"

#include "vornccd.h"

#include <libusb.h>
#include <pthread.h>

#include <atomic>
#include <cstdint>

/// The one implementation of VornCamera, for all five families.
class VORNCCD_API VornCameraImpl : public VornCamera {
public:
    /// Does no USB traffic. @p usbDevice and @p displayName are kept, not copied.
    VornCameraImpl(libusb_device* usbDevice, const char* displayName, CAMERA_TYPE family);
    ~VornCameraImpl() override;
    VornCameraImpl(const VornCameraImpl&) = delete;
    VornCameraImpl& operator=(const VornCameraImpl&) = delete;

    const char* getName() override;
    bool open() override;
    void close() override;
    bool setParam(PARAM_TYPE param, long value) override;
    long getParam(PARAM_TYPE param) override;
    bool getCapabilities(const char** outName, CAMERA_TYPE* outType, bool* outHasShutter, bool* outHasGuidePort,
                         bool* outHas8BitMode, bool* outHasFilterWheel, unsigned int* outLineCount,
                         unsigned int* outPixelCountX, unsigned int* outPixelCountY, double* outPixelSizeX,
                         double* outPixelSizeY, unsigned int* outMaxBinX, unsigned int* outMaxBinY,
                         unsigned int* outTempSensorCount, COOLER_TYPE* outCooler, COLOUR_TYPE* outColour,
                         int* outOffsetX, int* outOffsetY, bool* outSupportsLongExposure, double* outMinShortExposure,
                         double* outMaxShortExposure) override;
    bool getCapabilities(const char** outName, CAMERA_TYPE* outType, VornCapabilities* caps) override;
    bool getTemperatureSensorStatus(unsigned int sensor, float* currentTemp) override;
    bool getCoolingStatus(COOLING_STATE* state, float* targetTemp, float* power) override;
    bool setCooling(float targetTemp) override;
    bool initiateWarmUp() override;
    bool getFilterWheelStatus(unsigned int* filterCount, bool* moving, unsigned int* current,
                              unsigned int* target) override;
    bool setFilter(unsigned int index) override;
    bool setPreviewMode(bool enable) override;
    bool set8BitMode(bool enable) override;
    bool setDarkFrameMode(bool enable) override;
    bool startExposure(bool amp) override;
    bool abortExposure() override;
    bool readCCD(unsigned int x, unsigned int y, unsigned int width, unsigned int height, unsigned int binX,
                 unsigned int binY) override;
    bool readCCD(unsigned int x, unsigned int y, unsigned int width, unsigned int height, unsigned int binX,
                 unsigned int binY, double seconds) override;
    bool getImage(unsigned short* buffer, unsigned int pixels) override;
    bool setShutter(bool open) override;
    bool setGuideRelays(unsigned short relayMask) override;
    bool setGPIODirection(unsigned short directionMask) override;
    bool getGPIO(unsigned short* levels) override;
    bool setGPIO(unsigned short levels) override;
    bool getGain(int* gain, int* offset) override;
    bool setGain(int gain, int offset) override;
    unsigned int delay(double seconds) override;
    unsigned int imageWidth(unsigned int width, unsigned int binX) override;
    unsigned int imageHeight(unsigned int height, unsigned int binY) override;
    unsigned int getSerialNumber() override;
    unsigned int getVersionMajor() override;
    unsigned int getVersionMinor() override;
    const char* getLastError() override;

    // --- transport/usb_transport.cpp: bulk transfers and lock -------------------------------------------------------

    /// Reads exactly @p length bytes from @p endpoint; short transfers go on. @return false on a libusb error.
    bool bulkRead(unsigned endpoint, unsigned length, uint8_t* buffer);
    /// Writes @p length bytes in one transfer; a short write counts as success.
    bool bulkWrite(unsigned endpoint, unsigned length, const uint8_t* buffer);
    /// Takes the camera's lock; waits while another operation holds it. Not re-entrant.
    void lock();
    /// Releases the camera's lock; harmless when nobody holds it.
    void unlock();

    // --- transport/bridge_request.cpp, bridge_ports.cpp, bridge_serial.cpp: bridge primitives ----------------------
    // None takes the lock: they run inside an operation that holds it, or inside open().

    /// One bridge request: header and payload out, reply (or acknowledgement when @p flag is set) in.
    /// @param in receives @p inLength bytes; untouched when the exchange fails
    bool bulkTransfer(unsigned request, bool flag, unsigned subcode, unsigned value, unsigned index, const uint8_t* out,
                      uint8_t* in, unsigned outLength, unsigned inLength);
    /// Time that the bridge waits for the camera on the parallel bus, milliseconds, low 16 bits.
    bool setParTimeout(unsigned ms);
    /// Loads a waveform table of 172 bytes when bit 7 of its first byte is set, else of 152.
    bool parInit(const uint8_t* table);
    /// Loads the waveform table of @p mode 1 or 9; any other mode fails without a request.
    bool parInit(unsigned mode);
    /// Reads @p n bytes from the parallel bus. What arrived is stored also when the read fails.
    bool parIn(uint8_t* buffer, unsigned n);
    /// Writes @p n bytes to the parallel bus.
    bool parOut(const uint8_t* data, unsigned n);
    bool setPortDirection(unsigned port, unsigned dir);
    bool setPortState(unsigned port, unsigned state);
    /// Direction of one I/O line: 1 output, 0 input. Line L is bit L & 7 of port L >> 3.
    bool setIODir(unsigned line, unsigned output);
    /// Level of one I/O line; @p state is untouched when the request fails.
    bool getIOState(unsigned line, unsigned* state);
    bool setIOState(unsigned line, unsigned value);
    bool i2cSetSpeed(unsigned speed);
    bool i2cSetTimeout(unsigned ms);
    /// @p address is the 7-bit device address.
    bool i2cWrite(unsigned address, const uint8_t* data, unsigned n);
    bool i2cRead(unsigned address, uint8_t* buffer, unsigned n);
    /// Reads the configuration EEPROM; addresses above 255 wrap.
    bool eepRead(unsigned address, uint8_t* buffer, unsigned n);
    /// Sets up the SPI lines; QUICKER and ADVANCED only, any other family ends the process.
    bool spiInit();
    /// Writes the low 12 bits of @p value to an SPI register; QUICKER only, any other family ends the process.
    bool spiWrite(unsigned channel, unsigned value);
    /// Reads @p n bytes by the family's path; QUICKER and IIDC end the process. ADVANCED sends what @p buffer holds.
    bool getData(uint8_t* buffer, unsigned n);
    /// Reads one 16-bit word into the low half of @p value; the upper half stays (CLASSIC clears it).
    bool getData(unsigned* value);
    /// Reads a NUL-terminated string, one character a 16-bit word, at most @p max - 3 characters.
    bool getString(char* buffer, unsigned max);

    // --- transport/command_protocol.cpp, liveness.cpp: camera commands ---------------------------------------------

    /// Sends a command. Null @p payload sends zeros, null @p reply reads none. QUICKER and IIDC end the process.
    bool sendCommand(unsigned cmd, const uint8_t* payload, uint8_t* reply, unsigned payloadLength,
                     unsigned replyLength);
    bool sendCommand(unsigned cmd);
    /// 16-bit payload: high byte first on ADVANCED, low byte first on STANDARD and CLASSIC.
    bool sendCommand(unsigned cmd, uint16_t value);
    /// 16-bit payload with a reply: low byte first on every family, unlike the form without a reply.
    bool sendCommand(unsigned cmd, uint16_t value, uint8_t* reply, unsigned replyLength);
    /// Starts the camera's application and waits up to 64 x 10 ms for it.
    bool appInit();
    /// @return true when the camera answers. IIDC ends the process.
    bool ping();
    /// Discards what is left in the bridge's parallel FIFO; ends at the first failed read.
    void flush();

    // --- transport/firmware_upload.cpp -----------------------------------------------------------------------------

    /// Halts the bridge's CPU, loads FIRMWARE up to its end mark and starts the CPU.
    bool writeFW();

    // --- transport/register_access.cpp: registers of IIDC cameras --------------------------------------------------

    /// @return the register's value, 0 when the transfer fails.
    uint32_t readRegister(uint64_t address);
    void writeRegister(uint64_t address, uint32_t value);
    float readAbsValue(uint64_t address);
    void writeAbsValue(uint64_t address, float value);

    // --- transport/adc_setup.cpp -----------------------------------------------------------------------------------

    /// Clocks the eight set-up words of the EEPROM into the converter (QUICKER).
    bool setADC();
    /// Sets colour, offsetX and offsetY from the EEPROM's colour record.
    void checkColour();

    // --- accessories/temperature.cpp -------------------------------------------------------------------------------

    /// Raw sensor value to degrees Celsius by tempSensorType; type 0 ends the process.
    float sensorToCelsius(int value);
    /// Degrees Celsius to a raw sensor value by tempSensorType; type 0 ends the process.
    unsigned celsiusToSensor(float celsius);

    // --- Fields, in their documented order -------------------------------------------------------------------------

    const char* name;
    CAMERA_TYPE type;
    bool hasShutter = false;
    bool hasGuidePort = false;
    bool has8BitMode = false;
    bool hasFilterWheel = false;
    bool hasGPIO = false;      ///< deliberate: reported by neither form of getCapabilities
    uint32_t pixelCountX = 0;  ///< pixels
    uint32_t pixelCountY = 0;
    double pixelSizeX = 0.0;  ///< micrometres
    double pixelSizeY = 0.0;
    uint32_t maxBinX = 0;
    uint32_t maxBinY = 0;
    uint32_t tempSensorCount = 0;
    uint32_t tempSensorType = 0;  ///< 1: 10-bit, 2: 12-bit, 0: none or unknown
    uint32_t lineCount = 0;
    COOLER_TYPE cooler = COOLER_NONE;
    COLOUR_TYPE colour = COLOUR_NONE;
    int32_t offsetX = 0;
    int32_t offsetY = 0;
    uint32_t minCoolerPower = 0;
    uint32_t maxCoolerPower = 0;
    int64_t vregClearTime = 300000;            ///< microseconds
    std::atomic<bool> exposureStarted{false};  ///< atomic: another thread may abort the exposure
    std::atomic<bool> imageReady{false};
    int64_t quickerStartExposureDelay = 200000;  ///< microseconds
    int64_t quickerReadCCDDelay = 100000;        ///< microseconds
    int64_t maxPacketSize = 0x1800000;           ///< bytes; any value, clamped where it is used
    uint16_t guideRelayState = 0;
    bool ampRequested = false;
    bool previewMode = false;
    bool eightBitMode = false;
    bool darkFrameMode = false;
    bool pcCds = false;
    ReadoutRegion readoutRegion;
    uint32_t prechargeOffset = 0;
    libusb_device_handle* handle = nullptr;
    libusb_device* device;
    uint32_t timeout;  ///< milliseconds
    pthread_mutex_t mutex;
    int32_t openRetried = 0;
    uint32_t serialNumber = 0;
    uint32_t versionMajor = 0;
    uint32_t versionMinor = 0;
    std::atomic<const char*> lastError{"No error"};  ///< always a literal

private:
    /// True while somebody holds the mutex: releasing one that nobody holds is undefined, and some callers release
    /// without having taken it.
    std::atomic<bool> lockHeld{false};
};
