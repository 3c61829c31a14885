#include "QemuBoard.h"
#include "LoopbackPort.h"

#include <chrono>
#include <csignal>
#include <filesystem>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <vector>

extern char** environ;

std::string QemuBoard::qemuPath()
{
    // Debian's qemu-system-arm package puts it here.
    const char* path = "/usr/bin/qemu-system-arm";
    return std::filesystem::exists(path) ? path : std::string();
}

namespace {

bool listening(unsigned port)
{
    const int s = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    a.sin_port = htons(static_cast<uint16_t>(port));
    const bool ok = ::connect(s, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0;
    ::close(s);
    return ok;
}

} // namespace

QemuBoard::QemuBoard(const std::string& elf)
{
    const std::string qemu = qemuPath();
    if (qemu.empty())
        return;
    // A port found free may be taken before QEMU binds it: try a few.
    for (int attempt = 0; attempt < 5 && !m_ready; ++attempt) {
        m_port = freeLoopbackPort();
        const std::string gdb = "tcp:127.0.0.1:" + std::to_string(m_port);
        std::vector<std::string> args = {qemu,   "-M",     "mps2-an386", "-nographic", "-monitor", "none", "-serial",
                                         "none", "-kernel", elf,        "-S",         "-gdb",     gdb};
        std::vector<char*> argv;
        for (auto& a : args)
            argv.push_back(a.data());
        argv.push_back(nullptr);
        if (::posix_spawn(&m_pid, qemu.c_str(), nullptr, nullptr, argv.data(), environ) != 0) {
            m_pid = -1;
            return;
        }
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (std::chrono::steady_clock::now() < end) {
            int status = 0;
            if (::waitpid(m_pid, &status, WNOHANG) == m_pid) {
                m_pid = -1; // exited: the port was taken
                break;
            }
            // A probing connection: QEMU listens again once it closes.
            if (listening(m_port)) {
                m_ready = true;
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
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
    int status = 0;
    ::waitpid(m_pid, &status, 0);
    m_pid = -1;
}

QemuBoard::~QemuBoard()
{
    kill();
}
