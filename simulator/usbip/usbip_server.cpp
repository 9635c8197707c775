// SPDX-License-Identifier: MIT
#include "usbip_server.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>
#include <thread>

#include "bus/stream_session.h"
#include "usbip_connection.h"

namespace vornsim::usbip {
namespace {

constexpr size_t MOST_CLIENTS = 64;
constexpr int WAITING_CLIENTS = 16;

struct FreeAddresses {
    void operator()(addrinfo* list) const { freeaddrinfo(list); }
};

void setOption(int fd, int level, int option)
{
    const int on = 1;
    (void)setsockopt(fd, level, option, &on, sizeof on);  // all of them only make things better
}

bool isLoopback(const sockaddr* address)
{
    if (address->sa_family == AF_INET)
        return ntohl(reinterpret_cast<const sockaddr_in*>(address)->sin_addr.s_addr) >> 24 == IN_LOOPBACKNET;
    return IN6_IS_ADDR_LOOPBACK(&reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr);
}

}  // namespace

struct UsbIpServer::Client {
    int fd = -1;
    std::atomic<bool> finished = false;
    std::thread thread;
};

UsbIpServer::UsbIpServer(ExportTable& exports, const Clock& clock, Complain complain)
    : exports_(exports), clock_(clock), complain_(complain)
{
}

UsbIpServer::~UsbIpServer()
{
    if (listener_ >= 0)
        (void)close(listener_);
}

std::string UsbIpServer::listen(const std::string& address)
{
    const size_t colon = address.rfind(':');
    std::string host = address.substr(0, colon);
    if (colon == std::string::npos || host.empty())
        return "\"" + address + "\" is no ADDRESS:PORT such as 127.0.0.1:3240";
    if (host.front() == '[' && host.back() == ']')
        host = host.substr(1, host.size() - 2);
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
    addrinfo* found = nullptr;
    if (const int error = getaddrinfo(host.c_str(), address.c_str() + colon + 1, &hints, &found))
        return "cannot listen on " + address + ": " + gai_strerror(error);
    const std::unique_ptr<addrinfo, FreeAddresses> list(found);

    listener_ = socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    setOption(listener_, SOL_SOCKET, SO_REUSEADDR);
    if (listener_ < 0 || bind(listener_, found->ai_addr, found->ai_addrlen) != 0 ||
        ::listen(listener_, WAITING_CLIENTS) != 0) {
        const int error = errno;
        return "cannot listen on " + address + ": " + std::strerror(error) +
               (error == EADDRINUSE ? " (is another USB/IP server running? Choose another port with --listen)" : "");
    }
    sockaddr_storage bound{};
    socklen_t length = sizeof bound;
    (void)getsockname(listener_, reinterpret_cast<sockaddr*>(&bound), &length);
    // the port is at the same place in addresses of both kinds
    port_ = ntohs(reinterpret_cast<const sockaddr_in*>(&bound)->sin_port);
    loopbackOnly_ = isLoopback(found->ai_addr);
    return "";
}

void UsbIpServer::run(int stopFd)
{
    pollfd watched[] = {{listener_, POLLIN, 0}, {stopFd, POLLIN, 0}};
    while (watched[1].revents == 0) {
        if (poll(watched, 2, -1) < 0 && errno != EINTR)
            break;
        if (watched[0].revents != 0)
            accept(stopFd);
    }
    for (Client& client : clients_)
        client.thread.join();
    clients_.clear();
}

void UsbIpServer::accept(int stopFd)
{
    forgetFinished();
    const int fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0)
        return;  // it has gone again
    if (clients_.size() >= MOST_CLIENTS) {
        complain_("a client was turned away: there are " + std::to_string(MOST_CLIENTS) + " already");
        (void)close(fd);
        return;
    }
    setOption(fd, IPPROTO_TCP, TCP_NODELAY);
    setOption(fd, SOL_SOCKET, SO_KEEPALIVE);  // a client whose machine went away is noticed in the end
    Client& client = clients_.emplace_back();
    client.fd = fd;
    client.thread = std::thread([this, &client, stopFd] { serve(client, stopFd); });
}

void UsbIpServer::serve(Client& client, int stopFd)
{
    {
        UsbIpConnection connection(client.fd, exports_, clock_);
        serveStream(client.fd, connection, clock_, stopFd);
        if (!connection.complaint().empty())
            complain_("a client was dropped: " + connection.complaint());
    }
    (void)close(client.fd);
    client.finished = true;
}

void UsbIpServer::forgetFinished()
{
    clients_.remove_if([](Client& client) {
        if (client.finished)
            client.thread.join();
        return client.finished.load();
    });
}

}  // namespace vornsim::usbip
