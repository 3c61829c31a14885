// The simulated target served over the GDB remote protocol on a loopback TCP
// port, so that a debugger (gdb-multiarch) or Plotvik's own GDB back end can
// reach it. It behaves as OpenOCD does on a Cortex-M: memory is read and
// written while the core runs, attaching halts the core, detaching lets it
// run again, "monitor reset halt" resets it. One client at a time.
#pragma once

#include "sim/target/Target.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <thread>

namespace sim {

class GdbServer {
public:
    // Listens on 127.0.0.1:port (0: a free port). Null with the reason in `error`.
    static std::unique_ptr<GdbServer> start(Target& target, uint16_t port, std::string& error);
    ~GdbServer();
    GdbServer(const GdbServer&) = delete;
    GdbServer& operator=(const GdbServer&) = delete;

    uint16_t port() const { return m_port; }
    // Packets answered and clients served so far.
    uint64_t packets() const { return m_packets.load(); }
    uint32_t clients() const { return m_clients.load(); }

private:
    GdbServer(Target& target, int listenFd, uint16_t port, int wakeRead, int wakeWrite);
    void run();
    void serve(int fd);
    // The reply to one packet (none for "continue" and "kill"); `closeAfter`
    // ends the session once it is sent.
    std::optional<std::string> answer(const std::string& packet, bool& acks, bool& resumed, bool& closeAfter);
    std::string readMemory(const std::string& args) const;
    std::string writeMemory(const std::string& args);
    std::string registers() const;
    std::string features(const std::string& args) const;
    std::string monitor(const std::string& hexCommand);

    Target& m_target; // not owned
    int m_listenFd = -1;
    uint16_t m_port = 0;
    int m_wakeRead = -1; // a byte here ends the serving thread
    int m_wakeWrite = -1;
    std::atomic<uint64_t> m_packets{0};
    std::atomic<uint32_t> m_clients{0};
    std::thread m_thread;
};

} // namespace sim
