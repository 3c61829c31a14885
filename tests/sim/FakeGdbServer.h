// A scripted GDB server on one end of a socket pair: a little target memory,
// a run state, and the ways real servers treat packets while the core runs.
// The simulator's own server (sim/target/GdbServer) behaves as OpenOCD only.
#pragma once

#include "sim/gdb/Link.h"
#include "sim/gdb/Packet.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

class FakeGdbServer {
public:
    enum class Style {
        Background, // answers reads while running (OpenOCD)
        StopReply,  // stops and drops the packet, answering a stop reply (QEMU 7.2)
        Silent,     // drops every byte but the interrupt while running (Black Magic Probe)
    };
    static constexpr uint32_t kRamBase = 0x20000000;

    explicit FakeGdbServer(Style style) : m_style(style)
    {
        int fds[2];
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0)
            std::abort();
        m_clientFd = fds[0];
        m_fd = fds[1];
        m_thread = std::thread([this] { serve(); });
    }
    ~FakeGdbServer()
    {
        m_quit = true;
        m_thread.join();
        if (m_fd >= 0)
            ::close(m_fd);
    }

    // The client's end, handed over once.
    std::unique_ptr<sim::gdb::Link> takeLink() { return std::make_unique<sim::gdb::Link>(std::exchange(m_clientFd, -1)); }

    void poke(uint32_t address, const void* src, size_t n)
    {
        std::lock_guard lk(m_mutex);
        std::memcpy(m_ram.data() + (address - kRamBase), src, n);
    }
    uint32_t peek32(uint32_t address)
    {
        std::lock_guard lk(m_mutex);
        uint32_t v;
        std::memcpy(&v, m_ram.data() + (address - kRamBase), 4);
        return v;
    }
    bool running() const { return m_running; }
    int count(const std::string& prefix) const
    {
        std::lock_guard lk(m_mutex);
        const auto starts = [&](const std::string& p) { return p.rfind(prefix, 0) == 0; };
        return static_cast<int>(std::count_if(m_log.begin(), m_log.end(), starts));
    }

    // Behaviour switches, set before use.
    std::string supported = "PacketSize=400";
    std::map<std::string, std::string> monitor; // command -> console output
    bool nakFirst = false;                      // the first packet is answered with "-"
    std::atomic<bool> slowReads{false};   // while running, a read is answered only at the interrupt (a loaded host)
    std::atomic<int> closeAfterReads{-1}; // drop the connection after this many "m" packets

private:
    void reply(const std::string& payload) { send(sim::gdb::framePacket(payload)); }
    void send(const std::string& bytes)
    {
        if (m_fd >= 0)
            (void)::send(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }

    void serve()
    {
        sim::gdb::PacketParser parser;
        char buf[4096];
        while (!m_quit && m_fd >= 0) {
            pollfd p{m_fd, POLLIN, 0};
            if (::poll(&p, 1, 10) <= 0)
                continue;
            const ssize_t n = ::recv(m_fd, buf, sizeof buf, 0);
            if (n <= 0)
                break;
            for (ssize_t i = 0; i < n && m_fd >= 0; ++i) {
                if (buf[i] == 0x03) {
                    if (!m_heldRead.empty()) // answered late, but before the stop it now handles
                        answer(std::exchange(m_heldRead, {}));
                    if (m_running.exchange(false))
                        reply("T02");
                    continue;
                }
                parser.feed(&buf[i], 1);
                while (parser.hasEvent() && m_fd >= 0) {
                    auto e = parser.takeEvent();
                    if (e.kind == sim::gdb::Event::Kind::Packet)
                        handle(e.payload);
                }
            }
        }
    }

    void handle(const std::string& packet)
    {
        if (m_running && m_style == Style::Silent)
            return;
        if (std::exchange(nakFirst, false))
            return send("-");
        send("+");
        {
            std::lock_guard lk(m_mutex);
            m_log.push_back(packet);
        }
        if (m_running && m_style == Style::StopReply) {
            m_running = false;
            return reply("T02thread:01;");
        }
        if (packet.rfind("qSupported", 0) == 0)
            return reply(supported);
        if (packet == "?")
            return reply("T05");
        if (packet == "c") {
            m_running = true;
            return;
        }
        if (packet[0] == 'm' && slowReads && m_running) {
            m_heldRead = packet;
            return;
        }
        answer(packet);
    }

    void answer(const std::string& packet)
    {
        if (packet[0] == 'm' || packet[0] == 'M') {
            if (packet[0] == 'm' && closeAfterReads >= 0 && closeAfterReads-- == 0) {
                ::close(std::exchange(m_fd, -1));
                return;
            }
            const auto address = static_cast<uint32_t>(std::strtoul(packet.c_str() + 1, nullptr, 16));
            const auto size = static_cast<uint32_t>(std::strtoul(packet.c_str() + packet.find(',') + 1, nullptr, 16));
            if (address == 0 && packet[0] == 'm')
                return reply(std::string(size * 2, '0')); // the vector table
            if (address < kRamBase || address + size > kRamBase + m_ram.size())
                return reply("E14");
            std::lock_guard lk(m_mutex);
            if (packet[0] == 'm')
                return reply(sim::gdb::toHex(m_ram.data() + (address - kRamBase), size));
            const auto bytes = sim::gdb::fromHex(packet.substr(packet.find(':') + 1));
            std::memcpy(m_ram.data() + (address - kRamBase), bytes->data(), size);
            return reply("OK");
        }
        if (packet.rfind("qRcmd,", 0) == 0) {
            const auto raw = sim::gdb::fromHex(packet.substr(6));
            const std::string command(raw->begin(), raw->end());
            const auto it = monitor.find(command);
            const std::string out = it != monitor.end() ? it->second + "\n" : "unknown command: '" + command + "'\n";
            reply("O" + sim::gdb::toHex(out.data(), out.size()));
            return reply("OK");
        }
        reply("");
    }

    Style m_style;
    int m_fd = -1;
    int m_clientFd = -1;
    std::atomic<bool> m_quit{false};
    std::atomic<bool> m_running{false};
    mutable std::mutex m_mutex;
    std::vector<uint8_t> m_ram = std::vector<uint8_t>(0x400, 0);
    std::vector<std::string> m_log;
    std::string m_heldRead; // a read kept back by slowReads
    std::thread m_thread;
};
