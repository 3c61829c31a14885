#include "sim/gdb/Packet.h"

#include <cctype>

namespace sim::gdb {
namespace {

constexpr char kDigits[] = "0123456789abcdef";

int hexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

bool allHex(std::string_view s)
{
    for (const char c : s) {
        if (hexValue(c) < 0)
            return false;
    }
    return true;
}

} // namespace

std::string framePacket(std::string_view payload)
{
    std::string out;
    out.reserve(payload.size() + 4);
    out += '$';
    uint8_t sum = 0;
    for (const char c : payload) {
        if (c == '#' || c == '$' || c == '}' || c == '*') {
            out += '}';
            out += static_cast<char>(c ^ 0x20);
            sum = static_cast<uint8_t>(sum + '}' + (c ^ 0x20));
        } else {
            out += c;
            sum = static_cast<uint8_t>(sum + static_cast<uint8_t>(c));
        }
    }
    out += '#';
    out += kDigits[sum >> 4];
    out += kDigits[sum & 15];
    return out;
}

std::string toHex(const void* data, size_t size)
{
    const auto* p = static_cast<const uint8_t*>(data);
    std::string out(size * 2, '0');
    for (size_t i = 0; i < size; ++i) {
        out[2 * i] = kDigits[p[i] >> 4];
        out[2 * i + 1] = kDigits[p[i] & 15];
    }
    return out;
}

std::optional<std::vector<uint8_t>> fromHex(std::string_view hex)
{
    if (hex.size() % 2 != 0)
        return std::nullopt;
    std::vector<uint8_t> out(hex.size() / 2);
    for (size_t i = 0; i < out.size(); ++i) {
        const int hi = hexValue(hex[2 * i]);
        const int lo = hexValue(hex[2 * i + 1]);
        if (hi < 0 || lo < 0)
            return std::nullopt;
        out[i] = static_cast<uint8_t>(hi << 4 | lo);
    }
    return out;
}

bool isOutputPacket(std::string_view payload)
{
    return payload.size() > 1 && payload[0] == 'O' && payload.size() % 2 == 1 && allHex(payload.substr(1));
}

bool isStopReply(std::string_view payload)
{
    if (payload.empty())
        return false;
    const char k = payload[0];
    return (k == 'S' || k == 'T') ? payload.size() >= 3 && allHex(payload.substr(1, 2))
                                  : (k == 'W' || k == 'X') && payload.size() >= 2;
}

bool isErrorReply(std::string_view payload)
{
    return payload.size() >= 2 && payload[0] == 'E' && (payload[1] == '.' || (payload.size() == 3 && allHex(payload.substr(1))));
}

std::string decodePayload(std::string_view raw)
{
    std::string out;
    out.reserve(raw.size());
    for (size_t i = 0; i < raw.size(); ++i) {
        const char c = raw[i];
        if (c == '}' && i + 1 < raw.size()) {
            out += static_cast<char>(raw[++i] ^ 0x20);
        } else if (c == '*' && i + 1 < raw.size() && !out.empty()) {
            // "X*n": X repeated n - 29 more times.
            const int count = static_cast<uint8_t>(raw[++i]) - 29;
            if (count > 0)
                out.append(static_cast<size_t>(count), out.back());
        } else {
            out += c;
        }
    }
    return out;
}

void PacketParser::feed(const char* data, size_t size)
{
    for (size_t i = 0; i < size; ++i) {
        const char c = data[i];
        switch (m_state) {
        case State::Idle:
            if (c == '+')
                m_events.push_back({Event::Kind::Ack, {}});
            else if (c == '-')
                m_events.push_back({Event::Kind::Nak, {}});
            else if (c == '\x03')
                m_events.push_back({Event::Kind::Interrupt, {}});
            else if (c == '$' || c == '%') {
                m_state = State::Payload;
                m_notification = c == '%';
                m_raw.clear();
                m_sum = 0;
            }
            break; // anything else is noise between packets
        case State::Payload:
            if (c == '#') {
                m_state = State::Check1;
            } else if (c == '$') {
                // A new start inside a packet: the earlier one was cut off.
                m_raw.clear();
                m_sum = 0;
                m_notification = false;
            } else if (m_raw.size() >= kMaxPacket) {
                m_state = State::Idle;
            } else {
                m_raw += c;
                m_sum = static_cast<uint8_t>(m_sum + static_cast<uint8_t>(c));
            }
            break;
        case State::Check1:
            m_check[0] = c;
            m_state = State::Check2;
            break;
        case State::Check2:
            m_check[1] = c;
            finish();
            m_state = State::Idle;
            break;
        }
    }
}

void PacketParser::finish()
{
    const int hi = hexValue(m_check[0]);
    const int lo = hexValue(m_check[1]);
    const bool ok = hi >= 0 && lo >= 0 && (hi << 4 | lo) == m_sum;
    if (m_notification) {
        if (ok)
            m_events.push_back({Event::Kind::Notification, decodePayload(m_raw)});
        return;
    }
    m_events.push_back({ok ? Event::Kind::Packet : Event::Kind::BadPacket, ok ? decodePayload(m_raw) : std::string()});
}

Event PacketParser::takeEvent()
{
    Event e = std::move(m_events.front());
    m_events.pop_front();
    return e;
}

} // namespace sim::gdb
