// SPDX-License-Identifier: MIT
#include "lifecycle/camera_impl.h"
#include "trace/trace.h"
#include "transport/bridge.h"
#include "transport/pause.h"
#include "transport/wire.h"

using namespace vornccd;

namespace {

constexpr int INTERFACE_NUMBER = 0;
constexpr int ALTERNATE_SETTING = 1;  // the one with the bulk endpoints
constexpr long BRIDGE_SETTLE_US = 200000;
constexpr long CLASSIC_RETRY_US = 5000000;
constexpr uint32_t PRODUCT_ID_UNREAD = 0x2005;

}  // namespace

bool VornCameraImpl::open()
{
    const OpenOutcome outcome = openOnce();
    if (outcome != OpenOutcome::RETRY)
        return outcome == OpenOutcome::OPENED;
    sleepms(CLASSIC_RETRY_US);
    // deliberate: through the virtual table, so that a class of the host's that overrides open() sees each try. A
    // CLASSIC camera is tried again without end. No object here has a destructor and no local's address is taken, so
    // an optimising compiler (-O2 and above) makes this call a jump and the stack stays flat. A debug build, and one
    // with sanitizers, keeps a frame of about 100 bytes for each try: 8 MB of stack then last for some days.
    VornCamera& self = *this;
    return self.open();
}

VornCameraImpl::OpenOutcome VornCameraImpl::openOnce()
{
    TRACE_ENTER("%s-> VornCameraImpl::open()\n");
    if (handle != nullptr) {
        TRACE_EXIT("%s<- VornCameraImpl::open 01\n");
        return OpenOutcome::OPENED;
    }
    const int result = libusb_open(device, &handle);
    if (result < 0) {
        handle = nullptr;
        unlock();
        lastError = "Failed to open device";
        TRACE_DETAIL("%s    libusb_open() -> %s\n", libusb_error_name(result));
        TRACE_EXIT("%s<- VornCameraImpl::open 00\n");
        return OpenOutcome::FAILED;
    }

    bool ok = claimInterface();
    if (type == CLASSIC || type == STANDARD || type == QUICKER || type == ADVANCED)
        ok = bringUpBridge(ok);
    uint32_t productId = PRODUCT_ID_UNREAD;
    if (ok && type != IIDC)
        ok = readProductId(&productId);
    TRACE_DETAIL("%s    pid = %0x\n", productId);
    serialNumber = 0;
    versionMajor = 0;
    versionMinor = 0;

    switch (type) {
        case STANDARD:
            ok = identifyStandard(ok, productId);
            break;
        case ADVANCED:
            ok = identifyAdvanced(ok);
            break;
        case QUICKER:
            ok = identifyQuicker(ok);
            break;
        case IIDC:
            ok = identifyIidc(ok);
            break;
        case CLASSIC:
            ok = connectClassic(ok);
            // deliberate: openRetried is set, never counted up, so the retries have no end.
            if (!ok && openRetried <= 4) {
                openRetried = 1;
                libusb_close(handle);
                handle = nullptr;
                unlock();
                TRACE_DETAIL("%s    failed to connect device!!!\n");
                TRACE_EXIT("%s<- VornCameraImpl::open 00 - retry\n");
                return OpenOutcome::RETRY;
            }
            ok = identifyClassic(ok);
            break;
        default:  // a type outside the enumeration
            ok = false;
            TRACE_DETAIL("%s    unsupported device!!!\n");
            break;
    }

    if (type == QUICKER || type == STANDARD || type == ADVANCED) {
        ok = ok && i2cSetTimeout(200);
        ok = ok && setParTimeout(2000);
    }
    if (!ok)
        return failOpen();
    TRACE_EXIT("%s<- VornCameraImpl::open %d\n", 1);
    return OpenOutcome::OPENED;
}

/// Gives back what an attempt took.
VornCameraImpl::OpenOutcome VornCameraImpl::failOpen()
{
    libusb_close(handle);
    handle = nullptr;
    unlock();
    lastError = "Failed to initialize device";
    TRACE_DETAIL("%s    failed to initialize device!!!\n");
    TRACE_EXIT("%s<- VornCameraImpl::open 00\n");
    return OpenOutcome::FAILED;
}

/// Takes the interface from the kernel. @return whether it is ours, and the bulk endpoints are there.
bool VornCameraImpl::claimInterface()
{
    if (libusb_kernel_driver_active(handle, INTERFACE_NUMBER) == 1) {
        // A failure shows in the claim.
        [[maybe_unused]] const int detached = libusb_detach_kernel_driver(handle, INTERFACE_NUMBER);
        TRACE_DETAIL("%s    libusb_detach_kernel_driver() -> %s\n", libusb_error_name(detached));
    }
    int result = libusb_claim_interface(handle, INTERFACE_NUMBER);
    TRACE_DETAIL("%s    libusb_claim_interface() -> %s\n", libusb_error_name(result));
    if (result == 0 && type != IIDC) {
        result = libusb_set_interface_alt_setting(handle, INTERFACE_NUMBER, ALTERNATE_SETTING);
        TRACE_DETAIL("%s    libusb_set_interface_alt_setting() -> %s\n", libusb_error_name(result));
    }
    return result == 0;
}

/// Loads the bridge's program and sets the bridge up. The pause and the flush come also after a failure, a failed claim
/// included: the kernel refuses the flush's transfers on an interface that another program owns.
bool VornCameraImpl::bringUpBridge(bool ok)
{
    ok = ok && writeFW();
    if (type != ADVANCED) {
        ok = ok && setPortDirection(0, 0x9f);
        ok = ok && setPortState(0, 0x80);
        ok = ok && i2cSetTimeout(50);
        ok = ok && setParTimeout(50);
        ok = ok && i2cSetSpeed(0);
    }
    sleepms(BRIDGE_SETTLE_US);
    flush();
    return ok;
}

/// Reads the product id from the EEPROM, 0 when that fails, and the colour record in any case.
bool VornCameraImpl::readProductId(uint32_t* productId)
{
    uint8_t bytes[2] = {};
    bool ok = i2cSetTimeout(5000);
    ok = ok && eepRead(EEPROM_PRODUCT_ID, bytes, sizeof bytes);
    *productId = getLe16(bytes, 0);
    checkColour();
    return ok;
}
