#include "QemuBoard.h"

#include <arpa/inet.h>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <netinet/in.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
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

bool listening(unsigned port)
{
    const int s = ::socket(AF_INET, SOCK_STREAM, 0);
    const sockaddr_in a = loopback(static_cast<uint16_t>(port));
    const bool ok = ::connect(s, reinterpret_cast<const sockaddr*>(&a), sizeof a) == 0;
    ::close(s);
    return ok;
}

} // namespace

uint16_t freeLoopbackPort()
{
    const int s = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a = loopback(0);
    socklen_t len = sizeof a;
    const bool ok = s >= 0 && ::bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0
                    && ::getsockname(s, reinterpret_cast<sockaddr*>(&a), &len) == 0;
    if (s >= 0)
        ::close(s);
    return ok ? ntohs(a.sin_port) : 0;
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
    // A port found free may be taken before QEMU binds it: try a few.
    for (int attempt = 0; attempt < 5 && !m_ready && !qemu.empty(); ++attempt) {
        m_port = freeLoopbackPort();
        const std::string gdb = "tcp:127.0.0.1:" + std::to_string(m_port);
        const char* argv[] = {qemu.c_str(), "-M",      "mps2-an386", "-nographic", "-monitor", "none",      "-serial",
                              "none",       "-kernel", elf.c_str(),  "-S",         "-gdb",     gdb.c_str(), nullptr};
        if (::posix_spawn(&m_pid, qemu.c_str(), nullptr, nullptr, const_cast<char* const*>(argv), environ) != 0) {
            m_pid = -1;
            return;
        }
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (std::chrono::steady_clock::now() < end && !m_ready) {
            if (::waitpid(m_pid, nullptr, WNOHANG) == m_pid) {
                m_pid = -1; // exited: the port was taken
                break;
            }
            // A probing connection: QEMU listens again once it closes.
            m_ready = listening(m_port);
            std::this_thread::sleep_for(std::chrono::milliseconds(m_ready ? 0 : 20));
        }
        if (!m_ready)
            kill();
    }
}

void QemuBoard::kill()
{
    if (m_pid <= 0)
        return;
    ::kill(m_pid, SIGKILL);
    ::waitpid(m_pid, nullptr, 0);
    m_pid = -1;
}
