// One GDB remote-protocol conversation: packets with acks and resends,
// replies, interrupts, console output. Not thread-safe: its owner serialises.
#pragma once

#include "sim/gdb/Link.h"
#include "sim/gdb/Packet.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace sim::gdb {

class Client {
public:
    static constexpr int kReplyTimeoutMs = 3000;
    static constexpr int kMaxResends = 3;

    explicit Client(std::unique_ptr<Link> link);

    // qSupported: reads the packet size and switches acks off where the
    // server offers it. Empty on success, else why the server is not usable.
    std::string greet();
    uint32_t packetSize() const { return m_packetSize; }
    // Bytes one "m" reply can carry: two hex digits a byte, framing aside.
    uint32_t maxReadBytes() const { return (m_packetSize - 4) / 2; }
    // Bytes one "M" packet can carry: its header "Maaaaaaaa,llll:" aside.
    uint32_t maxWriteBytes() const { return (m_packetSize - 4 - 16) / 2; }

    // Sends a packet; in ack mode waits up to ackTimeoutMs for "+" and
    // resends after "-". False when the server never acknowledged it.
    bool send(std::string_view payload, int ackTimeoutMs = kReplyTimeoutMs);
    // The next packet, console output ("O...") collected aside; nullopt on a
    // timeout or when the connection is gone (then lost() is true).
    std::optional<std::string> receive(int timeoutMs = kReplyTimeoutMs);
    // send() then receive().
    std::optional<std::string> request(std::string_view payload, int timeoutMs = kReplyTimeoutMs);
    // Sends bytes as they are (framed packets, the interrupt byte) without
    // waiting for acks: a batch of requests costs one round trip. Late acks
    // are skipped by receive().
    bool sendRaw(std::string_view bytes);
    // The interrupt byte (0x03), outside any packet.
    bool interrupt();
    // While on, the acks of received packets are kept and go out with the
    // next sendRaw() (or flushAcks()), so that a batch of replies costs the
    // server one wake-up, not one per reply. For servers that take an ack
    // late (QEMU drops a reply's copy once the next packet starts).
    void deferAcks(bool on) { m_deferAcks = on; }
    bool flushAcks();

    // Console output received so far, as text; clears it.
    std::string takeOutput();
    bool lost() const { return m_lost; }

private:
    bool pump(int timeoutMs); // reads once; false on timeout or loss
    void markLost();

    std::unique_ptr<Link> m_link;
    PacketParser m_parser;
    uint32_t m_packetSize = 400; // the smallest any server here uses, until qSupported says
    bool m_acks = true;
    bool m_lost = false;
    std::string m_output;
    std::string m_queued; // a packet that arrived while an ack was awaited
    bool m_hasQueued = false;
    bool m_deferAcks = false;
    std::string m_pendingAcks;
};

} // namespace sim::gdb
