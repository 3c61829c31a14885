#include "QemuBoard.h"

#include <arpa/inet.h>
#include <csignal>
#include <filesystem>
#include <netinet/in.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

sockaddr_in loopback(uint16_t port)
{
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    a.sin_port = htons(port);
    return a;
}

// A socket bound to a free loopback port, listening when asked; -1 on failure.
int boundSocket(uint16_t& port, bool listen)
{
    const int s = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a = loopback(0);
    socklen_t len = sizeof a;
    if (s < 0 || ::bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 || (listen && ::listen(s, 4) != 0)
        || ::getsockname(s, reinterpret_cast<sockaddr*>(&a), &len) != 0) {
        if (s >= 0)
            ::close(s);
        return -1;
    }
    port = ntohs(a.sin_port);
    return s;
}

// True once the gdbstub answers a packet: QEMU on a loaded machine is slow to
// start, so a generous bound, never a measure.
bool answers(uint16_t port)
{
    const int s = ::socket(AF_INET, SOCK_STREAM, 0);
    const sockaddr_in a = loopback(port);
    pollfd p{s, POLLIN, 0};
    char ack = 0;
    const bool ok = ::connect(s, reinterpret_cast<const sockaddr*>(&a), sizeof a) == 0
                    && ::send(s, "$?#3f", 5, MSG_NOSIGNAL) == 5 && ::poll(&p, 1, 20000) == 1
                    && ::recv(s, &ack, 1, 0) == 1;
    ::close(s);
    return ok;
}

} // namespace

uint16_t freeLoopbackPort()
{
    uint16_t port = 0;
    const int s = boundSocket(port, false);
    if (s >= 0)
        ::close(s);
    return port;
}

std::string QemuBoard::qemuPath()
{
    // Debian's qemu-system-arm package puts it here.
    const char* path = "/usr/bin/qemu-system-arm";
    return std::filesystem::exists(path) ? path : std::string();
}

QemuBoard::QemuBoard(const std::string& elf)
{
    const std::string qemu = qemuPath();
    // QEMU serves GDB on a socket that listens already: no port to race for.
    uint16_t port = 0;
    const int s = qemu.empty() ? -1 : boundSocket(port, true);
    if (s < 0)
        return;
    m_port = port;
    const std::string gdb = "socket,id=gdb,server=on,wait=off,fd=" + std::to_string(s);
    const char* argv[] = {qemu.c_str(), "-M",          "mps2-an386", "-nographic", "-monitor", "none",
                          "-serial",    "none",        "-kernel",    elf.c_str(),  "-S",       "-chardev",
                          gdb.c_str(),  "-gdb",        "chardev:gdb", nullptr};
    if (::posix_spawn(&m_pid, qemu.c_str(), nullptr, nullptr, const_cast<char* const*>(argv), environ) != 0)
        m_pid = -1;
    ::close(s);
    m_ready = m_pid > 0 && answers(port);
}

void QemuBoard::kill()
{
    if (m_pid <= 0)
        return;
    ::kill(m_pid, SIGKILL);
    ::waitpid(m_pid, nullptr, 0);
    m_pid = -1;
}
