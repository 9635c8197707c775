// SPDX-License-Identifier: MIT
// The USB/IP server against clients that send bytes written by hand, on virtual time.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <memory>
#include <string>
#include <thread>

#include "../simulator/device_fixture.h"
#include "device/usb/usb_function.h"
#include "usbip/export_table.h"
#include "usbip/usbip_connection.h"
#include "usbip/usbip_server.h"

namespace vornsim::usbip {
namespace {

using test::Bytes;
using test::hex;

const std::string DEVICE = "00 01 00 02 ";  // of no matter
const std::string OUT = "00 x4 ", IN = "00 00 00 01 ";

/// @param rest the setup bytes and what is written
std::string submit(const std::string& number, const std::string& direction, const std::string& endpoint,
                   const std::string& length, const std::string& rest, const std::string& packets = "00 x4")
{
    return "00 00 00 01 00 00 00 " + number + " " + DEVICE + direction + "00 00 00 " + endpoint + " 00 x4 " + length +
           " 00 x4 " + packets + " 00 x4 " + rest;
}

const std::string READ_1024 = submit("07", IN, "06", "00 00 04 00", "00 x8");
const std::string GET_DEVICE_DESCRIPTOR = submit("01", IN, "00", "00 00 00 12", "80 06 00 01 00 00 12 00");
const std::string UNLINK_7 = "00 00 00 02 00 00 00 08 " + DEVICE + "00 x4 00 x4 00 00 00 07 00 x24";
const std::string LIST = "01 11 80 05 00 x4";
const std::string IMPORT = "01 11 80 03 00 x4 31 2D 31 00 x29";  // "1-1"

std::string answer(const std::string& command, const std::string& status, const std::string& length)
{
    return command + " 00 x12 " + status + " " + length + " 00 x20";
}

TEST(UsbIpParser, TakesWholeMessagesAndRefusesWhatNoneBeginsWith)
{
    enum Kind : size_t { INCOMPLETE, MALFORMED, SUBMIT, UNLINK };
    const struct {
        const char* label;
        std::string bytes;
        Kind kind;
        size_t number;  ///< INCOMPLETE: bytes needed; else bytes taken
    } cases[] = {
        {"a byte less", READ_1024.substr(0, READ_1024.size() - 1) + "7", INCOMPLETE, 48},
        {"unlink, and the next message", UNLINK_7 + " 55", UNLINK, 48},
        {"write", submit("09", OUT, "04", "00 00 00 03", "00 x8 0A 0B 0C", "FF x4"), SUBMIT, 51},
        {"data to come", submit("09", OUT, "04", "00 00 00 03", "00 x8 0A 0B"), INCOMPLETE, 51},
        {"32 MiB", submit("09", IN, "06", "02 00 00 00", "00 x8"), SUBMIT, 48},
        {"a byte more", submit("09", IN, "06", "02 00 00 01", "00 x8"), MALFORMED, 0},
        {"endpoint 16", submit("09", IN, "10", "00 x4", "00 x8"), MALFORMED, 0},
        {"direction 2", submit("09", "00 00 00 02 ", "06", "00 x4", "00 x8"), MALFORMED, 0},
        {"isochronous", submit("09", IN, "06", "00 x4", "00 x8", "00 00 00 01"), MALFORMED, 0},
        {"setup says more", submit("09", IN, "00", "00 00 00 02", "80 00 x5 03 00"), MALFORMED, 0},
        {"setup says out", submit("09", IN, "00", "00 00 00 02", "40 00 x5 02 00"), MALFORMED, 0},
        {"an answer", "00 00 00 03 00 x44", MALFORMED, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        const Bytes bytes = hex(c.bytes);
        const auto parsed = parseCommand(bytes);
        ASSERT_EQ(parsed.message.index(), size_t{c.kind});
        const auto* incomplete = std::get_if<Incomplete>(&parsed.message);
        EXPECT_EQ(incomplete ? incomplete->needed : parsed.length, c.number);
    }
    for (const char* refused : {"01 06 80 05 00 x4", "01 11 80 04 00 x4", "01 11 80 03 00 x4 31 x32"})
        EXPECT_TRUE(std::holds_alternative<Malformed>(parseRequest(hex(refused)).message)) << refused;
}

/// Endpoint 0x86 has three bytes from a certain time on, or whatever a test makes of it.
struct Device : UsbFunction {
    explicit Device(const Clock& time) : UsbFunction({0x1234, 0x5678, 0x0102, 50, {{{0x86}, {0x04}}}}), clock(time) {}
    BulkResult sendToEndpoint(uint8_t /*endpoint*/, std::span<const uint8_t> data) override
    {
        return {TransferStatus::OK, data.size(), true};
    }
    BulkResult readFromEndpoint(uint8_t /*endpoint*/, std::span<uint8_t> buffer) override
    {
        if (status != TransferStatus::OK)
            return {status, 0, true};
        if (clock.nowUs() < readyAtUs)
            return {TransferStatus::OK, 0, false, readyAtUs};
        std::fill_n(buffer.begin(), 3, uint8_t{0xAB});
        return {TransferStatus::OK, 3, true};
    }

    const Clock& clock;
    int64_t readyAtUs = NEVER;
    TransferStatus status = TransferStatus::OK;
};

/// A connection with the test at the other end.
struct Peer {
    Peer(ExportTable& exports, const Clock& clock)
    {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
        connection = std::make_unique<UsbIpConnection>(ends[0], exports, clock);
    }
    ~Peer()
    {
        connection.reset();
        (void)close(ends[0]);
        (void)close(ends[1]);
    }

    /// Sends bytes to the connection. @return whether it goes on.
    bool say(const std::string& text) const
    {
        const Bytes bytes = hex(text);
        EXPECT_EQ(send(ends[1], bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
        return connection->onReadable();
    }
    /// What the connection has sent.
    Bytes heard() const
    {
        Bytes bytes(65536);
        const ssize_t count = recv(ends[1], bytes.data(), bytes.size(), MSG_DONTWAIT);
        bytes.resize(static_cast<size_t>(std::max<ssize_t>(count, 0)));
        return bytes;
    }
    bool import() const { return say(IMPORT) && heard().size() == 320; }

    std::array<int, 2> ends{};
    std::unique_ptr<UsbIpConnection> connection;
};

struct UsbIp : testing::Test {
    UsbIp() { EXPECT_TRUE(exports.add(slot, log)); }

    test::ManualClock clock;
    test::CollectingLog log;
    CameraSlot slot{[this] { return std::make_unique<Device>(clock); }, {}, clock, log};
    Device& device = dynamic_cast<Device&>(slot.camera());
    ExportTable exports{clock};
    Peer peer{exports, clock};
};

TEST_F(UsbIp, ListsAndLendsADeviceToOneClientAtATime)
{
    const std::string record =
        "00 00 00 01 00 00 00 02 00 00 00 03 12 34 56 78 01 02 FF FF FF 01 01 01";  // bus, device, speed, ids, classes
    EXPECT_FALSE(peer.say(LIST));                                                   // the answer ends the connection
    const Bytes list = peer.heard();
    ASSERT_EQ(list.size(), 12U + 312 + 4);
    EXPECT_EQ(Bytes(list.begin(), list.begin() + 12), hex("01 11 00 05 00 x4 00 00 00 01"));
    EXPECT_EQ(Bytes(list.begin() + 12 + 256, list.begin() + 12 + 260), hex("31 2D 31 00"));
    EXPECT_EQ(Bytes(list.begin() + 12 + 288, list.end()), hex(record + " FF FF FF 00"));
    {
        const Peer first(exports, clock);
        EXPECT_TRUE(first.say(IMPORT.substr(0, 24)));  // it may come in pieces
        EXPECT_TRUE(first.say(IMPORT.substr(24)));
        const Bytes import = first.heard();
        ASSERT_EQ(import.size(), 8U + 312);
        EXPECT_EQ(Bytes(import.begin(), import.begin() + 8), hex("01 11 00 03 00 x4"));
        EXPECT_EQ(Bytes(import.begin() + 8 + 288, import.end()), hex(record));

        const Peer second(exports, clock);
        EXPECT_FALSE(second.say(IMPORT));
        EXPECT_EQ(second.heard(), hex("01 11 00 03 00 00 00 02"));
    }
    EXPECT_TRUE(Peer(exports, clock).import());
}

TEST_F(UsbIp, AnswersTransfersWhenTheDeviceDoes)
{
    ASSERT_TRUE(peer.import());
    EXPECT_TRUE(peer.say(GET_DEVICE_DESCRIPTOR));
    EXPECT_EQ(peer.heard(), hex(answer("00 00 00 03 00 00 00 01", "00 x4", "00 00 00 12") +
                                " 12 01 00 02 FF FF FF 40 34 12 78 56 02 01 00 00 00 01"));

    device.readyAtUs = 1000500;
    EXPECT_TRUE(peer.say(READ_1024));
    EXPECT_EQ(peer.connection->nextWakeUs(), 1000500);
    EXPECT_TRUE(peer.heard().empty());
    clock.pass(500);
    EXPECT_TRUE(peer.connection->onTime());
    EXPECT_EQ(peer.heard(), hex(answer("00 00 00 03 00 00 00 07", "00 x4", "00 00 00 03") + " AB AB AB"));

    // taken back when it waits, and when it has been answered
    device.readyAtUs = NEVER;
    EXPECT_TRUE(peer.say(READ_1024));
    EXPECT_TRUE(peer.say(UNLINK_7));
    EXPECT_EQ(peer.heard(), hex(answer("00 00 00 04 00 00 00 08", "FF FF FF 98", "00 x4")));
    EXPECT_TRUE(peer.say(UNLINK_7));
    EXPECT_EQ(peer.heard(), hex(answer("00 00 00 04 00 00 00 08", "00 x4", "00 x4")));

    for (const auto& [status, code] : {std::pair{TransferStatus::STALL, "FF FF FF E0"},
                                       {TransferStatus::BABBLE, "FF FF FF B5"},
                                       {TransferStatus::IO_ERROR, "FF FF FF B9"}}) {
        device.status = status;
        EXPECT_TRUE(peer.say(READ_1024));
        EXPECT_EQ(peer.heard(), hex(answer("00 00 00 03 00 00 00 07", code, "00 x4"))) << code;
    }
    device.status = TransferStatus::GONE;
    EXPECT_FALSE(peer.say(READ_1024));
    peer.connection.reset();
    EXPECT_TRUE(exports.available().empty());  // until the device says that it is back
}

TEST_F(UsbIp, DropsClientsThatAskTooMuchOrNothing)
{
    ASSERT_TRUE(peer.import());
    const std::string most = submit("07", IN, "06", "02 00 00 00", "00 x8");
    EXPECT_TRUE(peer.say(most));
    EXPECT_TRUE(peer.say(most));
    EXPECT_FALSE(peer.say(most));
    EXPECT_EQ(peer.connection->complaint(), "the client has too many transfers under way");
    EXPECT_FALSE(Peer(exports, clock).say("DE AD BE EF x60"));
    const Peer silent(exports, clock);
    EXPECT_EQ(silent.connection->nextWakeUs(), clock.nowUs() + 10'000'000);
    EXPECT_FALSE(silent.connection->onTime());
}

struct Client {
    explicit Client(uint16_t port)
    {
        sockaddr_in address{AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
        EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }
    ~Client() { (void)close(fd); }
    /// Sends a request and waits for @p length bytes of answer. @return how many came before the server closed.
    size_t ask(const std::string& request, size_t length) const
    {
        Bytes bytes = hex(request);
        (void)send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        bytes.resize(length);
        return static_cast<size_t>(std::max<ssize_t>(recv(fd, bytes.data(), length, MSG_WAITALL), 0));
    }

    const int fd = socket(AF_INET, SOCK_STREAM, 0);
};

TEST_F(UsbIp, ServesSeveralClientsAndOutlivesThem)
{
    UsbIpServer server(exports, clock, [](const std::string&) {});
    EXPECT_NE(server.listen("nowhere"), "");
    ASSERT_EQ(server.listen("127.0.0.1:0"), "");
    EXPECT_TRUE(server.loopbackOnly());
    const int stop = eventfd(0, 0);
    std::thread thread([&] { server.run(stop); });

    EXPECT_EQ(Client(server.port()).ask("16 03 01 00 x400", 1), 0U);
    auto owner = std::make_unique<Client>(server.port());
    EXPECT_EQ(owner->ask(IMPORT, 320), 320U);
    EXPECT_EQ(owner->ask(READ_1024 + " " + GET_DEVICE_DESCRIPTOR, 66), 66U);  // the read goes on waiting
    EXPECT_EQ(Client(server.port()).ask(IMPORT, 320), 8U);
    owner.reset();  // a client that disappears
    size_t length = 0;
    for (int attempt = 0; length != 320 && attempt < 1000; ++attempt)
        length = Client(server.port()).ask(IMPORT, 320);
    EXPECT_EQ(length, 320U);

    ASSERT_EQ(eventfd_write(stop, 1), 0);
    thread.join();
    (void)close(stop);
}

}  // namespace
}  // namespace vornsim::usbip
