#include "sim/gdb/Link.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace sim::gdb {
namespace {

// Waits for a non-blocking connect; 0 = connected, else an errno value.
int finishConnect(int fd, int timeoutMs)
{
    pollfd p{fd, POLLOUT, 0};
    const int n = ::poll(&p, 1, timeoutMs);
    if (n == 0)
        return ETIMEDOUT;
    if (n < 0)
        return errno;
    int err = 0;
    socklen_t len = sizeof err;
    if (::getsockopt(fd, SOL_SOCKET, SO_ERROR, &err, &len) != 0)
        return errno;
    return err;
}

} // namespace

Link::Link(int fd) : m_fd(fd) {}

Link::~Link()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

std::unique_ptr<Link> Link::connectTcp(const std::string& host, uint16_t port, int timeoutMs, std::string& error)
{
    const std::string where = host + ":" + std::to_string(port);
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* list = nullptr;
    if (const int rc = ::getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &list); rc != 0) {
        error = "Unknown host \"" + host + "\" (" + ::gai_strerror(rc) + ").";
        return nullptr;
    }
    int lastErr = ECONNREFUSED;
    for (const addrinfo* a = list; a != nullptr; a = a->ai_next) {
        const int fd = ::socket(a->ai_family, a->ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, a->ai_protocol);
        if (fd < 0) {
            lastErr = errno;
            continue;
        }
        int err = ::connect(fd, a->ai_addr, a->ai_addrlen) == 0 ? 0 : errno;
        if (err == EINPROGRESS)
            err = finishConnect(fd, timeoutMs);
        if (err != 0) {
            ::close(fd);
            lastErr = err;
            continue;
        }
        ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
        // Packets are tiny and answered one by one: never wait to fill a segment.
        const int one = 1;
        ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        ::freeaddrinfo(list);
        return std::make_unique<Link>(fd);
    }
    ::freeaddrinfo(list);
    if (lastErr == ECONNREFUSED)
        error = "No GDB server is listening at " + where + " (connection refused).";
    else if (lastErr == ETIMEDOUT)
        error = "No answer from " + where + " within " + std::to_string(timeoutMs / 1000) + " s.";
    else
        error = "Cannot connect to " + where + ": " + std::strerror(lastErr) + ".";
    return nullptr;
}

bool Link::send(std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t n = ::send(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        bytes.remove_prefix(static_cast<size_t>(n));
    }
    return true;
}

long Link::receive(char* dst, size_t size, int timeoutMs)
{
    pollfd p{m_fd, POLLIN, 0};
    int n = 0;
    do {
        n = ::poll(&p, 1, timeoutMs);
    } while (n < 0 && errno == EINTR);
    if (n == 0)
        return 0;
    if (n < 0)
        return -1;
    ssize_t got = 0;
    do {
        got = ::recv(m_fd, dst, size, 0);
    } while (got < 0 && errno == EINTR);
    return got > 0 ? static_cast<long>(got) : -1;
}

} // namespace sim::gdb
