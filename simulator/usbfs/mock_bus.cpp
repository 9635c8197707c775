// SPDX-License-Identifier: MIT
#include "mock_bus.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "camera_port.h"
#include "ioctl_data.h"
#include "preload.h"
#include "sysfs_description.h"
#include "usbfs_memory.h"

#ifdef __SANITIZE_THREAD__
/// The thread sanitizer does not see how GLib and umockdev, which it did not compile, synchronise their own threads.
extern "C" const char* __tsan_default_options();
const char* __tsan_default_options()
{
    return "ignore_noninstrumented_modules=1";
}
#endif

namespace vornsim {
namespace {

constexpr unsigned BUS = 1;

/// umockdev listens on sockets below its directory, and the path of a socket has at most 107 bytes.
constexpr size_t LONGEST_TEMP_DIR = 50;

ObjectRef<UMockdevTestbed> makeTestbed()
{
    const char* tempDir = std::getenv("TMPDIR");
    const std::string kept = tempDir ? tempDir : "";
    if (kept.size() > LONGEST_TEMP_DIR)
        (void)setenv("TMPDIR", "/tmp", 1);
    ObjectRef<UMockdevTestbed> testbed(umockdev_testbed_new());
    if (kept.size() > LONGEST_TEMP_DIR)
        (void)setenv("TMPDIR", kept.c_str(), 1);
    return testbed;
}

std::string takeMessage(GError* error)
{
    std::string message = error ? error->message : "unknown error";
    g_clear_error(&error);
    return message;
}

// Signal handlers, called in umockdev's thread. Each connection keeps the port it serves alive.
using PortRef = std::shared_ptr<CameraPort>;

gboolean onRequest(UMockdevIoctlBase* /*base*/, UMockdevIoctlClient* client, gpointer port)
{
    (*static_cast<PortRef*>(port))->postRequest(client);
    return TRUE;
}

gboolean onRead(UMockdevIoctlBase* /*base*/, UMockdevIoctlClient* client, gpointer port)
{
    (*static_cast<PortRef*>(port))->postRead(client);
    return TRUE;
}

gboolean onWrite(UMockdevIoctlBase* /*base*/, UMockdevIoctlClient* client, gpointer /*port*/)
{
    umockdev_ioctl_client_complete(client, -1, EINVAL);
    return TRUE;
}

/// umockdev drops a client when its program closed the node or ended, be it in the middle of a request.
void onClientGone(gpointer port, GObject* client)
{
    const std::unique_ptr<PortRef> held(static_cast<PortRef*>(port));
    (*held)->postClosed(client);
}

void forgetPort(gpointer port, GClosure* /*closure*/)
{
    delete static_cast<PortRef*>(port);
}

void connectSignal(gpointer object, const char* signal, GCallback handler, const PortRef& port)
{
    (void)g_signal_connect_data(object, signal, handler, new PortRef(port), forgetPort, GConnectFlags{});
}

void onClient(UMockdevIoctlBase* /*base*/, UMockdevIoctlClient* client, gpointer port)
{
    g_object_weak_ref(G_OBJECT(client), onClientGone, new PortRef(*static_cast<PortRef*>(port)));
}

/// umockdev complains when a program ends in the middle of a request. That happens, and is no fault.
void onLogMessage(const char* domain, GLogLevelFlags level, const char* message, gpointer /*unused*/)
{
    if (!std::strstr(message, "Destroying IoctlClient"))
        g_log_default_handler(domain, level, message, nullptr);
}

}  // namespace

struct MockBus::State {
    explicit State(const Clock& busClock) : clock(busClock), testbed(makeTestbed()) {}

    /// Plugs a device into a port of the root hub. @return an empty text, or what went wrong.
    std::string plugIn(CameraSlot& slot, DeviceLog& log, unsigned portNumber);

    /// Serves the device node that will be, with @p gate to take its place.
    std::string serve(const UsbAddress& address, const PortRef& port, const std::string& gate);

    CameraPort::Events eventsOf(CameraSlot& slot, DeviceLog& log, const UsbAddress& address, const UsbLayout& layout);
    void remove(const UsbAddress& address, const UsbLayout& layout);
    std::string path(const std::string& below) const;

    const Clock& clock;
    ObjectRef<UMockdevTestbed> testbed;
    UsbfsMemory memory;
    std::mutex mutex;  ///< devices come and go in threads of their own; guards what follows and the testbed
    bool closing = false;
    unsigned lastDevice = 1;  ///< the root hub's
    unsigned lastPort = 0;
    std::vector<PortRef> ports;
    std::vector<ObjectRef<UMockdevIoctlBase>> handlers;
};

std::string MockBus::State::path(const std::string& below) const
{
    char* root = umockdev_testbed_get_root_dir(testbed.get());
    std::string whole = root + below;
    g_free(root);
    return whole;
}

std::string MockBus::State::plugIn(CameraSlot& slot, DeviceLog& log, unsigned portNumber)
{
    const std::vector<uint8_t> descriptors = slot.camera().descriptors();
    const std::optional<UsbLayout> layout = parseDescriptors(descriptors);
    if (!layout)
        return "the device has no valid descriptors";
    const UsbAddress address{BUS, portNumber, ++lastDevice};
    auto port = std::make_shared<CameraPort>(slot, *layout, clock, log, memory, eventsOf(slot, log, address, *layout));
    // A program may see the device and open it as soon as it is added, so all else is made before.
    const std::string gate = path("/gate");
    std::string problem = serve(address, port, gate);
    if (!problem.empty())
        return problem;
    GError* error = nullptr;
    if (!umockdev_testbed_add_from_string(testbed.get(), describeDevice(address, *layout, descriptors).c_str(), &error))
        return takeMessage(error);
    if (std::rename(gate.c_str(), path(deviceNode(address)).c_str()) != 0)
        return std::string("cannot make the device node: ") + std::strerror(errno);
    ports.push_back(std::move(port));
    return "";
}

std::string MockBus::State::serve(const UsbAddress& address, const PortRef& port, const std::string& gate)
{
    ObjectRef<UMockdevIoctlBase> handler(umockdev_ioctl_base_new());
    connectSignal(handler.get(), "client-connected", G_CALLBACK(onClient), port);
    connectSignal(handler.get(), "handle-ioctl", G_CALLBACK(onRequest), port);
    connectSignal(handler.get(), "handle-read", G_CALLBACK(onRead), port);
    connectSignal(handler.get(), "handle-write", G_CALLBACK(onWrite), port);
    if (const int failure = port->start(gate))
        return std::string("cannot make the device node: ") + std::strerror(failure);
    GError* error = nullptr;
    if (!umockdev_testbed_attach_ioctl(testbed.get(), deviceNode(address).c_str(), handler.get(), &error))
        return takeMessage(error);
    handlers.push_back(std::move(handler));
    return "";
}

/// Takes a device out of sysfs and /dev, its interfaces first: umockdev does not remove links to what is below a
/// device.
void MockBus::State::remove(const UsbAddress& address, const UsbLayout& layout)
{
    for (const AlternateSetting& setting : layout.settings)
        if (setting.alternate == 0)
            umockdev_testbed_remove_device(testbed.get(), interfacePath(address, layout, setting).c_str());
    umockdev_testbed_uevent(testbed.get(), sysfsPath(address).c_str(), "remove");
    umockdev_testbed_remove_device(testbed.get(), sysfsPath(address).c_str());
}

CameraPort::Events MockBus::State::eventsOf(CameraSlot& slot, DeviceLog& log, const UsbAddress& address,
                                            const UsbLayout& layout)
{
    const auto unplugged = [this, &log, address, layout] {
        const std::lock_guard held(mutex);
        remove(address, layout);
        log.note("unplugged");
    };
    const auto pluggedIn = [this, &slot, &log, port = address.port](bool samePort) {
        const std::lock_guard held(mutex);
        if (closing)
            return;
        const std::string problem = plugIn(slot, log, samePort ? port : ++lastPort);
        log.note(problem.empty() ? "plugged in again" : "cannot be plugged in again: " + problem);
    };
    return {unplugged, pluggedIn};
}

MockBus::MockBus(const Clock& clock, unsigned memoryMib) : state_(new State(clock))
{
    (void)g_log_set_handler(nullptr, G_LOG_LEVEL_CRITICAL, onLogMessage, nullptr);
    // Without the file there is no limit.
    (void)state_->memory.start(state_->path("/sys/module/usbcore/parameters/usbfs_memory_mb"), memoryMib);
}

MockBus::~MockBus()
{
    std::unique_lock held(state_->mutex);
    state_->closing = true;
    while (!state_->ports.empty()) {
        const PortRef port = std::move(state_->ports.back());
        state_->ports.pop_back();
        held.unlock();  // its thread may be about to report an event
        port->stop();
        held.lock();
    }
}

std::string MockBus::attach(CameraSlot& slot, DeviceLog& log)
{
    const std::lock_guard held(state_->mutex);
    GError* error = nullptr;
    if (state_->lastPort == 0 &&
        !umockdev_testbed_add_from_string(state_->testbed.get(), describeRootHub(BUS).c_str(), &error))
        return takeMessage(error);
    return state_->plugIn(slot, log, ++state_->lastPort);
}

std::vector<std::string> MockBus::environment() const
{
    std::vector<std::string> variables = preloadEnvironment();
    variables.push_back("UMOCKDEV_DIR=" + state_->path(""));
    return variables;
}

}  // namespace vornsim
