// SPDX-License-Identifier: MIT
// Opening: the script that all families share. What a family adds stands in families/.
#include "camera_impl.h"
#include "family.h"
#include "family_facts.h"
#include "lifecycle/step_runner.h"
#include "trace/trace.h"
#include "transport/bridge.h"
#include "transport/pause.h"

using namespace vornccd;

namespace {

constexpr int INTERFACE_NUMBER = 0;
constexpr int ALTERNATE_SETTING = 1;  // the one with the bulk endpoints
constexpr long BRIDGE_SETTLE_US = 200000;
constexpr long CONNECTION_RETRY_US = 5000000;
constexpr int LAST_RETRY = 4;
constexpr uint32_t PRODUCT_ID_UNREAD = 0x2005;

// Port 0 of the bridge
constexpr unsigned PORT_0_OUTPUTS = 0x9F;
constexpr unsigned PORT_0_STATE = 0x80;

// How long the bridge waits while it is set up, while the EEPROM is read, and afterwards
constexpr unsigned SET_UP_TIMEOUT_MS = 50;
constexpr unsigned EEPROM_I2C_TIMEOUT_MS = 5000;
constexpr unsigned CLOSING_I2C_TIMEOUT_MS = 200;
constexpr unsigned CLOSING_PAR_TIMEOUT_MS = 2000;
constexpr unsigned I2C_SPEED = 0;

/// How one attempt to open ended.
enum class OpenOutcome { OPENED, FAILED, RETRY };

/// Takes the interface from the kernel. @return whether it is ours, and the bulk endpoints are there.
bool claimInterface(VornCameraImpl& camera)
{
    if (libusb_kernel_driver_active(camera.handle, INTERFACE_NUMBER) == 1) {
        // A failure shows in the claim.
        [[maybe_unused]] const int detached = libusb_detach_kernel_driver(camera.handle, INTERFACE_NUMBER);
        TRACE_DETAIL("%s    libusb_detach_kernel_driver() -> %s\n", libusb_error_name(detached));
    }
    int result = libusb_claim_interface(camera.handle, INTERFACE_NUMBER);
    TRACE_DETAIL("%s    libusb_claim_interface() -> %s\n", libusb_error_name(result));
    if (result == 0 && factsOf(camera.type).hasEeprom) {
        result = libusb_set_interface_alt_setting(camera.handle, INTERFACE_NUMBER, ALTERNATE_SETTING);
        TRACE_DETAIL("%s    libusb_set_interface_alt_setting() -> %s\n", libusb_error_name(result));
    }
    return result == 0;
}

/// Loads the bridge's program and sets the bridge up. The pause and the flush come also after a failure, a failed claim
/// included: the kernel refuses the flush's transfers on an interface that another program owns.
void bringUpBridge(StepRunner& steps)
{
    const FamilyFacts& facts = factsOf(steps.camera.type);
    if (!facts.hasBridge)
        return;
    steps.run(&VornCameraImpl::writeFW);
    if (facts.getsBridgeSetUp) {
        steps.run(&VornCameraImpl::setPortDirection, 0U, PORT_0_OUTPUTS);
        steps.run(&VornCameraImpl::setPortState, 0U, PORT_0_STATE);
        steps.run(&VornCameraImpl::i2cSetTimeout, SET_UP_TIMEOUT_MS);
        steps.run(&VornCameraImpl::setParTimeout, SET_UP_TIMEOUT_MS);
        steps.run(&VornCameraImpl::i2cSetSpeed, I2C_SPEED);
    }
    sleepms(BRIDGE_SETTLE_US);
    steps.camera.flush();
}

/// Reads the product id from the EEPROM, 0 when that fails, and then the colour record in any case. After an earlier
/// failure, and without an EEPROM, nothing is read.
uint32_t readProductId(StepRunner& steps)
{
    uint32_t productId = PRODUCT_ID_UNREAD;
    if (steps.ok() && factsOf(steps.camera.type).hasEeprom) {
        uint8_t bytes[EEPROM_NUMBER_LENGTH] = {};
        steps.run(&VornCameraImpl::i2cSetTimeout, EEPROM_I2C_TIMEOUT_MS);
        steps.run(&VornCameraImpl::eepRead, EEPROM_PRODUCT_ID, bytes, static_cast<unsigned>(sizeof bytes));
        productId = unpack(bytes, EEPROM_NUMBER);
        steps.camera.checkColour();
    }
    TRACE_DETAIL("%s    pid = %0x\n", productId);
    return productId;
}

void setClosingTimeouts(StepRunner& steps)
{
    if (!factsOf(steps.camera.type).getsClosingTimeouts)
        return;
    steps.run(&VornCameraImpl::i2cSetTimeout, CLOSING_I2C_TIMEOUT_MS);
    steps.run(&VornCameraImpl::setParTimeout, CLOSING_PAR_TIMEOUT_MS);
}

/// deliberate: openRetried is set, never counted up, so the retries have no end.
bool retryIsDue(const StepRunner& steps)
{
    return !steps.ok() && factsOf(steps.camera.type).retriesConnection && steps.camera.openRetried <= LAST_RETRY;
}

/// Gives back what an attempt took.
void giveBack(VornCameraImpl& camera)
{
    libusb_close(camera.handle);
    camera.handle = nullptr;
    camera.unlock();
}

OpenOutcome retryLater(VornCameraImpl& camera)
{
    camera.openRetried = 1;
    giveBack(camera);
    TRACE_DETAIL("%s    failed to connect device!!!\n");
    TRACE_EXIT("%s<- VornCameraImpl::open 00 - retry\n");
    return OpenOutcome::RETRY;
}

OpenOutcome failOpen(VornCameraImpl& camera)
{
    giveBack(camera);
    camera.lastError = "Failed to initialize device";
    TRACE_DETAIL("%s    failed to initialize device!!!\n");
    TRACE_EXIT("%s<- VornCameraImpl::open 00\n");
    return OpenOutcome::FAILED;
}

/// From the opened handle to the identified camera.
OpenOutcome bringUp(VornCameraImpl& camera)
{
    const FamilyFunctions& family = functionsOf(camera.type);
    StepRunner steps(camera);
    steps.run(claimInterface);
    bringUpBridge(steps);
    const uint32_t productId = readProductId(steps);
    camera.serialNumber = 0;
    camera.versionMajor = 0;
    camera.versionMinor = 0;
    family.connect(steps);
    if (retryIsDue(steps))
        return retryLater(camera);
    family.identify(steps, productId);
    setClosingTimeouts(steps);
    if (!steps.ok())
        return failOpen(camera);
    TRACE_EXIT("%s<- VornCameraImpl::open %d\n", 1);
    return OpenOutcome::OPENED;
}

// Not a part of open(): its locals, some of which have their address taken, would keep that frame on the stack.
[[gnu::noinline]] OpenOutcome openOnce(VornCameraImpl& camera)
{
    TRACE_ENTER("%s-> VornCameraImpl::open()\n");
    if (camera.handle != nullptr) {
        TRACE_EXIT("%s<- VornCameraImpl::open 01\n");
        return OpenOutcome::OPENED;
    }
    const int result = libusb_open(camera.device, &camera.handle);
    if (result < 0) {
        camera.handle = nullptr;
        camera.unlock();
        camera.lastError = "Failed to open device";
        TRACE_DETAIL("%s    libusb_open() -> %s\n", libusb_error_name(result));
        TRACE_EXIT("%s<- VornCameraImpl::open 00\n");
        return OpenOutcome::FAILED;
    }
    return bringUp(camera);
}

}  // namespace

bool VornCameraImpl::open()
{
    const OpenOutcome outcome = openOnce(*this);
    if (outcome != OpenOutcome::RETRY)
        return outcome == OpenOutcome::OPENED;
    sleepms(CONNECTION_RETRY_US);
    // deliberate: through the virtual table, so that a class of the host's that overrides open() sees each try. A
    // CLASSIC camera is tried again without end. No object here has a destructor and no local's address is taken, so
    // an optimising compiler (-O2 and above) makes this call a jump and the stack stays flat. A debug build, and one
    // with sanitizers, keeps a frame of at most 100 bytes for each try: 8 MB of stack then last for some days.
    VornCamera& self = *this;
    return self.open();
}
