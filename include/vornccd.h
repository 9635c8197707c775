// SPDX-License-Identifier: MIT
/// @file vornccd.h
/// Public interface of libvornccd: cooled CCD cameras on USB.
///
/// A host program calls VornCamera::list() (or, from C, VornCamera_list()), receives one VornCamera object per attached
/// camera and drives each through that class:
///
/// @code
/// VornCamera* cameras[8];
/// int count = VornCamera::list(cameras, 8);
/// if (count > 0 && cameras[0]->open()) {
///     cameras[0]->startExposure(false);
///     usleep(cameras[0]->delay(10.0));
///     if (cameras[0]->readCCD(0, 0, width, height, 1, 1))
///         cameras[0]->getImage(pixels, width * height);
///     cameras[0]->close();
/// }
/// VornCamera_destroy(cameras[0]);
/// @endcode
///
/// Every operation that returns `bool` returns true on success; on failure getLastError() tells why. No operation
/// throws. Different cameras may be driven from different threads; calls on one camera are serialised by its lock,
/// and readCCD() and its getImage() belong to one thread.
#pragma once

#if defined(__GNUC__)
/// Marks what the library exports.
#define VORNCCD_API __attribute__((visibility("default")))
#else
#define VORNCCD_API
#endif

/// Camera family: decides which dialect the camera speaks.
enum CAMERA_TYPE : int {
    CLASSIC = 1,   ///< older cameras with the bridge
    STANDARD = 2,  ///< most cameras
    QUICKER = 3,   ///< fast-readout cameras; the quicker parameters apply
    IIDC = 4,      ///< register-mapped cameras with the IIDC control-register space
    ADVANCED = 5,  ///< cameras with the extended description
};

/// Parameters of VornCamera::setParam() and VornCamera::getParam().
enum PARAM_TYPE : int {
    QUICKER_START_EXPOSURE_DELAY = 1,  ///< microseconds, QUICKER only: pause inside startExposure(), default 200000
    QUICKER_READ_CCD_DELAY = 2,        ///< microseconds, QUICKER only: pause before a readout, default 100000
    MAX_PACKET_SIZE = 3,               ///< bytes, every family: largest single bulk read, default 0x1800000
};

/// Kind of cooler.
enum COOLER_TYPE : int {
    COOLER_NONE = 0,         ///< no cooler
    COOLER_ALWAYSON = 1,     ///< runs whenever the camera is powered
    COOLER_ONOFF = 2,        ///< can be switched
    COOLER_SELECTPOWER = 3,  ///< power can be chosen
    COOLER_SETPOINT = 4,     ///< regulates to a target temperature
};

/// What the cooler is doing.
enum COOLING_STATE : int {
    COOLING_INACTIVE = 0,  ///< cooler off
    COOLING_ON = 1,        ///< cooler on, not regulating
    COOLING_SETPOINT = 2,  ///< regulating to the target temperature
    WARMING_UP = 3,        ///< controlled warm-up in progress
};

/// Sensor colour type. There is no value 0.
enum COLOUR_TYPE : int {
    COLOUR_NONE = 1,  ///< monochrome
    COLOUR_RGGB = 2,  ///< Bayer filter; offsetX and offsetY give the phase of its RGGB pattern
};

/// What a camera can do; filled by VornCamera::getCapabilities(). The host allocates it.
struct VornCapabilities {
    bool hasShutter;               ///< mechanical shutter present
    bool hasGuidePort;             ///< guide relay port present
    bool has8BitMode;              ///< 8-bit readout supported
    bool hasFilterWheel;           ///< internal filter wheel present
    unsigned int lineCount;        ///< number of GPIO lines
    unsigned int pixelCountX;      ///< sensor width in pixels
    unsigned int pixelCountY;      ///< sensor height in pixels
    double pixelSizeX;             ///< pixel width in micrometres
    double pixelSizeY;             ///< pixel height in micrometres
    unsigned int maxBinX;          ///< largest horizontal binning
    unsigned int maxBinY;          ///< largest vertical binning
    unsigned int tempSensorCount;  ///< number of temperature sensors; they are numbered from 1
    COOLER_TYPE cooler;            ///< kind of cooler
    COLOUR_TYPE colour;            ///< sensor colour type
    int offsetX;                   ///< Bayer pattern offset in X, 0 or 1
    int offsetY;                   ///< Bayer pattern offset in Y, 0 or 1
    bool supportsLongExposure;     ///< startExposure() and the six-argument readCCD() are supported
    double minShortExposure;       ///< shortest exposure of the seven-argument readCCD(), seconds
    double maxShortExposure;       ///< longest exposure of the seven-argument readCCD(), seconds
};

/// One attached camera. Objects come from list() and are destroyed with VornCamera_destroy() or `delete`; close()
/// first. The order of the virtual operations is part of the binary interface and never changes.
class VORNCCD_API VornCamera {
public:
    /// Display name of the model, for example "Vorn K12". Static, never freed.
    virtual const char* getName() = 0;

    /// Opens the camera: claims the USB interface, loads the bridge firmware, identifies the camera. Takes from a
    /// fraction of a second to several seconds. On an open camera it returns true at once.
    /// Errors: "Failed to open device" (gone, or no permission), "Failed to initialize device" (busy, or no answer).
    /// A CLASSIC camera that does not answer is tried again every 5 s without end.
    virtual bool open() = 0;

    /// Closes the camera; the cooler goes on as it is. On a closed camera it does nothing.
    virtual void close() = 0;

    /// Sets a parameter of this camera; it need not be open. The value is not checked.
    /// Error: "Invalid parameter" (unknown, or of another family).
    virtual bool setParam(PARAM_TYPE param, long value) = 0;

    /// @return the parameter's value, or 0 with the error "Invalid parameter".
    virtual long getParam(PARAM_TYPE param) = 0;

    /// Reports what open() found. Every pointer may be null and is then skipped; for the meaning of each output see
    /// VornCapabilities. Error: "Device is not opened".
    virtual bool getCapabilities(const char** name, CAMERA_TYPE* type, bool* hasShutter, bool* hasGuidePort,
                                 bool* has8BitMode, bool* hasFilterWheel, unsigned int* lineCount,
                                 unsigned int* pixelCountX, unsigned int* pixelCountY, double* pixelSizeX,
                                 double* pixelSizeY, unsigned int* maxBinX, unsigned int* maxBinY,
                                 unsigned int* tempSensorCount, COOLER_TYPE* cooler, COLOUR_TYPE* colour, int* offsetX,
                                 int* offsetY, bool* supportsLongExposure, double* minShortExposure,
                                 double* maxShortExposure) = 0;

    /// The same as a record. @p name and @p type may be null, @p caps may not. Error: "Device is not opened".
    virtual bool getCapabilities(const char** name, CAMERA_TYPE* type, VornCapabilities* caps) = 0;

    /// Reads temperature sensor @p sensor (1 to tempSensorCount) in degrees Celsius.
    /// @p temperature may be null except on IIDC cameras. Errors: "Invalid parameter", "Failed to read temperature
    /// sensor status". A camera that reports the sensor type 0 ends the process when a temperature is asked for.
    virtual bool getTemperatureSensorStatus(unsigned int sensor, float* temperature) = 0;

    /// Reads the cooler's state, target (degrees Celsius) and power (per cent, not clamped). Each may be null; a null
    /// @p state suppresses the other two as well. Errors: "Unsupported operation", "Failed to set cooling status".
    virtual bool getCoolingStatus(COOLING_STATE* state, float* targetTemperature, float* power) = 0;

    /// Sets the cooling target in degrees Celsius and starts cooling.
    /// Errors: "Unsupported operation", "Failed to set temperature".
    virtual bool setCooling(float targetTemperature) = 0;

    /// Starts the controlled warm-up. Errors: "Unsupported operation", "Failed to initiate warmup".
    virtual bool initiateWarmUp() = 0;

    /// Reads the filter wheel. Each output may be null. Positions are in the camera's own numbering.
    /// Errors: "Unsupported operation", "Failed to get filter wheel status".
    virtual bool getFilterWheelStatus(unsigned int* filterCount, bool* moving, unsigned int* current,
                                      unsigned int* target) = 0;

    /// Starts moving the filter wheel to position @p index, in the camera's own numbering; returns when the camera
    /// has acknowledged, not when the wheel has stopped. Errors: "Unsupported operation", "Failed to set filter".
    virtual bool setFilter(unsigned int index) = 0;

    /// Chooses the preview readout (STANDARD, CLASSIC, ADVANCED). Error: "Unsupported operation".
    virtual bool setPreviewMode(bool enable) = 0;

    /// Chooses the 8-bit readout (ADVANCED). Error: "Unsupported operation".
    virtual bool set8BitMode(bool enable) = 0;

    /// Chooses dark frames: the shutter stays closed (STANDARD). A refusal leaves getLastError() as it was.
    virtual bool setDarkFrameMode(bool enable) = 0;

    /// Begins a long exposure. @p amp keeps the readout amplifier on (QUICKER). Error: "Failed to start exposure".
    virtual bool startExposure(bool amp) = 0;

    /// Abandons an exposure; harmless when there is none. Error: "Unsupported operation".
    virtual bool abortExposure() = 0;

    /// Ends the long exposure begun by startExposure() and starts the readout of a region given in unbinned sensor
    /// pixels. On success it keeps the camera's lock until getImage(), which must follow in the same thread. Errors:
    /// "Operation out of sequence", "Invalid parameter", "Failed to read CCD".
    virtual bool readCCD(unsigned int x, unsigned int y, unsigned int width, unsigned int height, unsigned int binX,
                         unsigned int binY) = 0;

    /// Makes a whole short exposure of @p seconds (minShortExposure to maxShortExposure) and starts its readout, as
    /// above. Returns when the exposure has ended. Errors: "Invalid parameter", "Failed to read CCD"; an IIDC camera
    /// refuses unequal binning and too long an exposure with getLastError() unchanged.
    virtual bool readCCD(unsigned int x, unsigned int y, unsigned int width, unsigned int height, unsigned int binX,
                         unsigned int binY, double seconds) = 0;

    /// Transfers the image of the readCCD() before it and releases the camera's lock.
    /// @param buffer values row after row, `imageWidth(width, binX)` a row, in host byte order. It must hold
    ///     @p pixels values; one more on ADVANCED cameras, whose two leading values are dropped in place; on QUICKER
    ///     cameras without precharge samples row r starts at index r x (height / binY): rows of a region wider than
    ///     high overlap, so ask for a square there (rows below the sensor come as 0).
    /// @param pixels number of values, `imageWidth(width, binX) * imageHeight(height, binY)`, not 0
    /// Errors: "Operation out of sequence", "Failed to get image".
    virtual bool getImage(unsigned short* buffer, unsigned int pixels) = 0;

    /// Opens or closes the shutter. Errors: "Unsupported operation", "Failed to set shutter".
    virtual bool setShutter(bool open) = 0;

    /// Closes the guide relays of the low four bits of @p relayMask and opens the others.
    /// Errors: "Unsupported operation", "Failed to set guide relays".
    virtual bool setGuideRelays(unsigned short relayMask) = 0;

    /// Sets the direction of the GPIO lines, a bit a line; which value means output is the camera's convention.
    /// Errors: "Unsupported operation", "Failed to set GPIO direction".
    virtual bool setGPIODirection(unsigned short directionMask) = 0;

    /// Reads the GPIO lines, a bit a line. @p levels may not be null. Errors: "Unsupported operation", "Failed to get
    /// GPIO".
    virtual bool getGPIO(unsigned short* levels) = 0;

    /// Drives the GPIO output lines, a bit a line. Errors: "Unsupported operation", "Failed to set GPIO".
    virtual bool setGPIO(unsigned short levels) = 0;

    /// Reads gain (0 to 63) and offset (0 to 512) of the current readout mode (ADVANCED). Neither pointer may be null.
    /// On other families it returns true, leaves both untouched and sets "Unsupported operation". Error: "Failed to
    /// set gain".
    virtual bool getGain(int* gain, int* offset) = 0;

    /// Sets gain (0 to 63) and offset (0 to 512) of the current readout mode (ADVANCED). On other families it returns
    /// true and sets "Unsupported operation". Errors: "Invalid parameter", "Failed to set gain".
    virtual bool setGain(int gain, int offset) = 0;

    /// @return microseconds to wait between startExposure() and the six-argument readCCD() for an exposure of
    /// @p seconds. Saturates at 4294967295 microseconds: time exposures of 4294.967295 s and more by your own clock.
    virtual unsigned int delay(double seconds) = 0;

    /// @return values in an image row for a region @p width sensor pixels wide. @p binX may not be 0.
    virtual unsigned int imageWidth(unsigned int width, unsigned int binX) = 0;

    /// @return rows of an image for a region @p height sensor pixels high. @p binY may not be 0.
    virtual unsigned int imageHeight(unsigned int height, unsigned int binY) = 0;

    /// @return the camera's serial number; 0 before open().
    virtual unsigned int getSerialNumber() = 0;

    /// @return the camera's firmware version, major part; 0 before open().
    virtual unsigned int getVersionMajor() = 0;

    /// @return the camera's firmware version, minor part; 0 before open().
    virtual unsigned int getVersionMinor() = 0;

    /// @return the text of the most recent failure, or "No error". Static, never freed, not cleared by success.
    virtual const char* getLastError() = 0;

    /// Ends the object only: an open camera is not closed by it.
    virtual ~VornCamera();

    /// Lists the attached cameras. Each call leaks libusb's device list and one reference a camera, so call it once,
    /// and again after a camera was replugged. Not thread-safe.
    /// @param cameras receives the objects; the caller owns them and destroys each with VornCamera_destroy()
    /// @param max places in @p cameras; a value below 1 ends the process
    /// @return number of objects stored
    static int list(VornCamera** cameras, int max);
};

extern "C" {
/// Plain form of VornCamera::list().
VORNCCD_API int VornCamera_list(VornCamera** cameras, int max);

/// Destroys a camera object; a null pointer is ignored. Close the camera first.
VORNCCD_API void VornCamera_destroy(VornCamera* camera);

/// Master switch of the trace on standard error; false at start. Set by the host.
VORNCCD_API extern bool VornDebug;

/// Second switch of the trace; true at start. The library clears it during long internal loops and sets it again.
VORNCCD_API extern bool VornDebugOn;

/// Bulk transfer timeout in milliseconds, copied into each camera by list(); 30000 at start.
VORNCCD_API extern int VornHostBulkTimeout;

/// The bridge microcontroller's program as a stream of load records. A host may copy another table over it before
/// VornCamera::open().
VORNCCD_API extern unsigned char FIRMWARE[18146];

/// Bridge waveform table for fast parallel reads; not loaded by the library itself.
VORNCCD_API extern unsigned char ParInitQFastData[152];
}
