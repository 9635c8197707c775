// SPDX-License-Identifier: MIT
#include "mock_bus.h"

#include <cstdlib>
#include <cstring>
#include <mutex>

#include "camera_port.h"
#include "ioctl_data.h"
#include "preload.h"
#include "sysfs_description.h"

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
    const Clock& clock;
    ObjectRef<UMockdevTestbed> testbed;
    std::mutex mutex;  ///< devices may be unplugged from several threads
    std::vector<PortRef> ports;
    std::vector<ObjectRef<UMockdevIoctlBase>> handlers;
};

MockBus::MockBus(const Clock& clock) : state_(new State{clock, makeTestbed(), {}, {}, {}})
{
    (void)g_log_set_handler(nullptr, G_LOG_LEVEL_CRITICAL, onLogMessage, nullptr);
}

MockBus::~MockBus()
{
    for (const PortRef& port : state_->ports)
        port->stop();
}

std::string MockBus::attach(UsbDevice& device, DeviceLog& log)
{
    const std::vector<uint8_t> descriptors = device.descriptors();
    const std::optional<UsbLayout> layout = parseDescriptors(descriptors);
    if (!layout)
        return "the device has no valid descriptors";

    UMockdevTestbed* testbed = state_->testbed.get();
    UsbAddress address;
    address.bus = BUS;
    address.port = static_cast<unsigned>(state_->ports.size()) + 1;
    address.device = address.port + 1;
    std::string description = state_->ports.empty() ? describeRootHub(BUS) : "";
    description += describeDevice(address, *layout, descriptors);
    GError* error = nullptr;
    if (!umockdev_testbed_add_from_string(testbed, description.c_str(), &error))
        return takeMessage(error);

    const std::string path = sysfsPath(address);
    auto onGone = [this, path] {
        std::lock_guard held(state_->mutex);
        umockdev_testbed_uevent(state_->testbed.get(), path.c_str(), "remove");
        umockdev_testbed_remove_device(state_->testbed.get(), path.c_str());
    };
    auto port = std::make_shared<CameraPort>(device, *layout, state_->clock, log, onGone);
    ObjectRef<UMockdevIoctlBase> handler(umockdev_ioctl_base_new());
    connectSignal(handler.get(), "client-connected", G_CALLBACK(onClient), port);
    connectSignal(handler.get(), "handle-ioctl", G_CALLBACK(onRequest), port);
    connectSignal(handler.get(), "handle-read", G_CALLBACK(onRead), port);
    connectSignal(handler.get(), "handle-write", G_CALLBACK(onWrite), port);

    char* root = umockdev_testbed_get_root_dir(testbed);
    const int failure = port->start(root + deviceNode(address));
    g_free(root);
    if (failure)
        return std::string("cannot make the device node: ") + std::strerror(failure);
    if (!umockdev_testbed_attach_ioctl(testbed, deviceNode(address).c_str(), handler.get(), &error))
        return takeMessage(error);
    state_->ports.push_back(std::move(port));
    state_->handlers.push_back(std::move(handler));
    return "";
}

std::vector<std::string> MockBus::environment() const
{
    char* root = umockdev_testbed_get_root_dir(state_->testbed.get());
    std::vector<std::string> variables = preloadEnvironment();
    variables.push_back(std::string("UMOCKDEV_DIR=") + root);
    g_free(root);
    return variables;
}

}  // namespace vornsim
