// GDB remote serial protocol framing: "$payload#cs" packets, "+"/"-" acks,
// "}" escapes and "X*c" run-length, parsed from a byte stream in any pieces.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sim::gdb {

// "$payload#cs" with the characters the protocol reserves escaped.
std::string framePacket(std::string_view payload);

// Lower-case hex of bytes, and back (nullopt on an odd length or a non-hex digit).
std::string toHex(const void* data, size_t size);
std::optional<std::vector<uint8_t>> fromHex(std::string_view hex);

// A console-output packet ("O" + hex text, as qRcmd and running targets send).
bool isOutputPacket(std::string_view payload);
// A stop reply ("S", "T", "W" or "X" packet).
bool isStopReply(std::string_view payload);
// An error reply ("Exx", or "E." with a text).
bool isErrorReply(std::string_view payload);

struct Event {
    enum class Kind { Ack, Nak, Packet, BadPacket, Notification, Interrupt };
    Kind kind;
    std::string payload; // decoded payload of a packet or notification
};

// One parser for everything either side sends: acks, packets (checksum
// checked, escapes and run-length expanded), "%" notifications, the interrupt
// byte (0x03); other bytes outside a packet are dropped up to the next "$" or "%".
class PacketParser {
public:
    void feed(const char* data, size_t size);
    bool hasEvent() const { return !m_events.empty(); }
    Event takeEvent();
    // A packet longer than this is dropped as junk (a stream that is not the protocol).
    static constexpr size_t kMaxPacket = 1 << 20;

private:
    enum class State { Idle, Payload, Check1, Check2 };
    void finish();

    std::deque<Event> m_events;
    State m_state = State::Idle;
    bool m_notification = false;
    std::string m_raw;
    uint8_t m_sum = 0;
    char m_check[2] = {};
};

// Expands escapes and run-length in a received payload.
std::string decodePayload(std::string_view raw);

} // namespace sim::gdb
