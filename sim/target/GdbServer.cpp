#include "sim/target/GdbServer.h"

#include "sim/gdb/Packet.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace sim {
namespace {

// Hex 0x1000: a reply carries up to 2046 bytes of memory.
constexpr uint32_t kPacketSize = 0x1000;
constexpr uint32_t kMaxRead = (kPacketSize - 4) / 2;
// How often a resumed core is looked at for a stop of its own (a fault).
constexpr int kStopPollMs = 20;

// The register set a Cortex-M debugger expects: r0..r12, sp, lr, pc, xpsr.
constexpr const char* kTargetXml =
    "<?xml version=\"1.0\"?>\n<!DOCTYPE target SYSTEM \"gdb-target.dtd\">\n"
    "<target version=\"1.0\"><architecture>arm</architecture>"
    "<feature name=\"org.gnu.gdb.arm.m-profile\">"
    "<reg name=\"r0\" bitsize=\"32\"/><reg name=\"r1\" bitsize=\"32\"/><reg name=\"r2\" bitsize=\"32\"/>"
    "<reg name=\"r3\" bitsize=\"32\"/><reg name=\"r4\" bitsize=\"32\"/><reg name=\"r5\" bitsize=\"32\"/>"
    "<reg name=\"r6\" bitsize=\"32\"/><reg name=\"r7\" bitsize=\"32\"/><reg name=\"r8\" bitsize=\"32\"/>"
    "<reg name=\"r9\" bitsize=\"32\"/><reg name=\"r10\" bitsize=\"32\"/><reg name=\"r11\" bitsize=\"32\"/>"
    "<reg name=\"r12\" bitsize=\"32\"/><reg name=\"sp\" bitsize=\"32\" type=\"data_ptr\"/>"
    "<reg name=\"lr\" bitsize=\"32\"/><reg name=\"pc\" bitsize=\"32\" type=\"code_ptr\"/>"
    "<reg name=\"xpsr\" bitsize=\"32\"/></feature></target>\n";

// "addr,len" in hex; false on anything else.
bool parseRange(const std::string& text, uint32_t& address, uint32_t& length)
{
    char* end = nullptr;
    const unsigned long a = std::strtoul(text.c_str(), &end, 16);
    if (end == text.c_str() || *end != ',')
        return false;
    const char* lenText = end + 1;
    const unsigned long n = std::strtoul(lenText, &end, 16);
    if (end == lenText || a > 0xFFFFFFFFul || n > 0xFFFFFFFFul)
        return false;
    address = static_cast<uint32_t>(a);
    length = static_cast<uint32_t>(n);
    return true;
}

bool sendAll(int fd, const std::string& bytes)
{
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::send(fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

} // namespace

std::unique_ptr<GdbServer> GdbServer::start(Target& target, uint16_t port, std::string& error)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        error = std::string("cannot create a socket: ") + std::strerror(errno);
        return nullptr;
    }
    const int one = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    a.sin_port = htons(port);
    socklen_t len = sizeof a;
    if (::bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 || ::listen(fd, 1) != 0
        || ::getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len) != 0) {
        error = "cannot serve GDB on 127.0.0.1:" + std::to_string(port) + ": " + std::strerror(errno);
        ::close(fd);
        return nullptr;
    }
    int wake[2];
    if (::pipe2(wake, O_CLOEXEC) != 0) {
        error = std::string("cannot create a pipe: ") + std::strerror(errno);
        ::close(fd);
        return nullptr;
    }
    return std::unique_ptr<GdbServer>(new GdbServer(target, fd, ntohs(a.sin_port), wake[0], wake[1]));
}

GdbServer::GdbServer(Target& target, int listenFd, uint16_t port, int wakeRead, int wakeWrite)
    : m_target(target), m_listenFd(listenFd), m_port(port), m_wakeRead(wakeRead), m_wakeWrite(wakeWrite)
{
    m_thread = std::thread([this] { run(); });
}

GdbServer::~GdbServer()
{
    const char byte = 0;
    (void)!::write(m_wakeWrite, &byte, 1);
    m_thread.join();
    ::close(m_listenFd);
    ::close(m_wakeRead);
    ::close(m_wakeWrite);
}

void GdbServer::run()
{
    for (;;) {
        pollfd p[2] = {{m_wakeRead, POLLIN, 0}, {m_listenFd, POLLIN, 0}};
        if (::poll(p, 2, -1) < 0) {
            if (errno == EINTR)
                continue;
            return;
        }
        if (p[0].revents != 0)
            return;
        if ((p[1].revents & POLLIN) == 0)
            continue;
        const int fd = ::accept4(m_listenFd, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0)
            continue;
        const int one = 1;
        ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        ++m_clients;
        serve(fd);
        ::close(fd);
    }
}

void GdbServer::serve(int fd)
{
    gdb::PacketParser parser;
    bool acks = true;
    bool resumed = false; // a "continue" awaits its stop reply
    char buf[4096];
    for (;;) {
        pollfd p[2] = {{m_wakeRead, POLLIN, 0}, {fd, POLLIN, 0}};
        const int n = ::poll(p, 2, resumed ? kStopPollMs : -1);
        if (n < 0 && errno != EINTR)
            return;
        if (p[0].revents != 0)
            return;
        if (resumed && m_target.isHalted()) {
            // Stopped by itself (a fault locks the core up).
            resumed = false;
            if (!sendAll(fd, gdb::framePacket("T05thread:01;")))
                return;
        }
        if (n <= 0 || (p[1].revents & (POLLIN | POLLHUP | POLLERR)) == 0)
            continue;
        const ssize_t got = ::recv(fd, buf, sizeof buf, 0);
        if (got <= 0)
            return;
        parser.feed(buf, static_cast<size_t>(got));
        while (parser.hasEvent()) {
            const gdb::Event e = parser.takeEvent();
            std::string out;
            bool closeAfter = false;
            switch (e.kind) {
            case gdb::Event::Kind::Interrupt:
                if (resumed || !m_target.isHalted()) {
                    m_target.halt();
                    resumed = false;
                    out = gdb::framePacket("T02thread:01;");
                }
                break;
            case gdb::Event::Kind::BadPacket:
                if (acks)
                    out = "-";
                break;
            case gdb::Event::Kind::Packet: {
                ++m_packets;
                if (acks) // the switch to no-ack mode is itself acknowledged
                    out = "+";
                if (const auto reply = answer(e.payload, acks, resumed, closeAfter))
                    out += gdb::framePacket(*reply);
                break;
            }
            default:
                break; // acks of our replies; nothing is resent over TCP
            }
            if (!out.empty() && !sendAll(fd, out))
                return;
            if (closeAfter)
                return;
        }
    }
}

std::optional<std::string> GdbServer::answer(const std::string& packet, bool& acks, bool& resumed, bool& closeAfter)
{
    if (packet.empty())
        return std::string();
    const char kind = packet[0];
    const std::string args = packet.substr(1);
    switch (kind) {
    case '?':
        // Attaching halts the core, as OpenOCD does by default.
        m_target.halt();
        resumed = false;
        return "T05thread:01;";
    case 'c':
        if (!args.empty()) {
            return "E01"; // resuming elsewhere is not offered
        }
        m_target.go();
        resumed = true;
        return std::nullopt; // the stop reply comes when the core stops
    case 'D':
        m_target.go();
        resumed = false;
        closeAfter = true;
        return "OK";
    case 'k':
        closeAfter = true;
        return std::nullopt;
    case 'g':
        return registers();
    case 'p': {
        const unsigned long n = std::strtoul(args.c_str(), nullptr, 16);
        uint32_t regs[Target::kCoreRegisters];
        if (n >= Target::kCoreRegisters || !m_target.coreRegisters(regs))
            return "E01";
        return gdb::toHex(&regs[n], 4);
    }
    case 'm':
        return readMemory(args);
    case 'M':
        return writeMemory(args);
    case 'H':
        return "OK";
    case 'T':
        return "OK";
    default:
        break;
    }
    if (packet.rfind("qSupported", 0) == 0) {
        char text[80];
        std::snprintf(text, sizeof text, "PacketSize=%x;QStartNoAckMode+;qXfer:features:read+", kPacketSize);
        return std::string(text);
    }
    if (packet == "QStartNoAckMode") {
        acks = false;
        return "OK";
    }
    if (packet.rfind("qXfer:features:read:", 0) == 0)
        return features(packet.substr(20));
    if (packet == "qAttached")
        return "1";
    if (packet == "qC")
        return "QC1";
    if (packet == "qfThreadInfo")
        return "m1";
    if (packet == "qsThreadInfo")
        return "l";
    if (packet.rfind("qSymbol:", 0) == 0)
        return "OK";
    if (packet.rfind("qRcmd,", 0) == 0)
        return monitor(packet.substr(6));
    return std::string(); // not supported
}

std::string GdbServer::readMemory(const std::string& args) const
{
    uint32_t address = 0;
    uint32_t length = 0;
    if (!parseRange(args, address, length))
        return "E01";
    length = std::min(length, kMaxRead);
    std::vector<uint8_t> bytes(length);
    if (length > 0 && !m_target.read(address, bytes.data(), length))
        return "E14";
    return gdb::toHex(bytes.data(), bytes.size());
}

std::string GdbServer::writeMemory(const std::string& args)
{
    const auto colon = args.find(':');
    uint32_t address = 0;
    uint32_t length = 0;
    if (colon == std::string::npos || !parseRange(args.substr(0, colon), address, length))
        return "E01";
    const auto bytes = gdb::fromHex(std::string_view(args).substr(colon + 1));
    if (!bytes || bytes->size() != length)
        return "E01";
    if (length > 0 && !m_target.write(address, bytes->data(), length))
        return "E14";
    return "OK";
}

std::string GdbServer::registers() const
{
    uint32_t regs[Target::kCoreRegisters];
    if (!m_target.coreRegisters(regs))
        return "E01";
    return gdb::toHex(regs, sizeof regs); // little-endian words, as the target holds them
}

std::string GdbServer::features(const std::string& args) const
{
    // "target.xml:offset,length"
    const auto colon = args.find(':');
    uint32_t offset = 0;
    uint32_t length = 0;
    if (colon == std::string::npos || args.substr(0, colon) != "target.xml")
        return "E00";
    if (!parseRange(args.substr(colon + 1), offset, length))
        return "E01";
    const std::string xml = kTargetXml;
    if (offset >= xml.size())
        return "l";
    const std::string part = xml.substr(offset, std::min<size_t>(length, kMaxRead));
    return (offset + part.size() >= xml.size() ? "l" : "m") + part;
}

std::string GdbServer::monitor(const std::string& hexCommand)
{
    const auto raw = gdb::fromHex(hexCommand);
    if (!raw)
        return "E01";
    const std::string command(raw->begin(), raw->end());
    std::string output;
    if (command == "reset halt" || command == "reset") {
        m_target.reset();
        if (command == "reset")
            m_target.go();
        output = "target reset\n";
    } else if (command == "halt") {
        m_target.halt();
        output = "target halted\n";
    } else {
        output = "unknown command: '" + command + "'\n";
    }
    return gdb::toHex(output.data(), output.size());
}

} // namespace sim
