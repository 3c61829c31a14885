#include "sim/gdb/Client.h"

#include <chrono>
#include <algorithm>
#include <cstdlib>
#include <utility>

namespace sim::gdb {
namespace {

using Clock = std::chrono::steady_clock;

int remainingMs(Clock::time_point deadline)
{
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

} // namespace

Client::Client(std::unique_ptr<Link> link) : m_link(std::move(link)) {}

void Client::markLost()
{
    m_lost = true;
}

bool Client::pump(int timeoutMs)
{
    if (m_lost)
        return false;
    char buf[4096];
    const long n = m_link->receive(buf, sizeof buf, timeoutMs);
    if (n < 0) {
        markLost();
        return false;
    }
    if (n == 0)
        return false;
    m_parser.feed(buf, static_cast<size_t>(n));
    return true;
}

bool Client::send(std::string_view payload, int ackTimeoutMs)
{
    if (m_lost || !flushAcks())
        return false;
    const std::string framed = framePacket(payload);
    for (int attempt = 0; attempt <= kMaxResends; ++attempt) {
        if (!m_link->send(framed)) {
            markLost();
            return false;
        }
        if (!m_acks)
            return true;
        const auto deadline = Clock::now() + std::chrono::milliseconds(ackTimeoutMs);
        bool nak = false;
        while (!nak) {
            while (m_parser.hasEvent()) {
                Event e = m_parser.takeEvent();
                if (e.kind == Event::Kind::Ack)
                    return true;
                if (e.kind == Event::Kind::Nak) {
                    nak = true;
                    break;
                }
                if (e.kind == Event::Kind::Packet) {
                    // The reply may overtake nothing, but an asynchronous stop
                    // reply or console output can arrive before our ack.
                    m_link->send("+");
                    if (isOutputPacket(e.payload)) {
                        const auto text = fromHex(std::string_view(e.payload).substr(1));
                        if (text)
                            m_output.append(text->begin(), text->end());
                    } else {
                        m_queued = std::move(e.payload);
                        m_hasQueued = true;
                    }
                } else if (e.kind == Event::Kind::BadPacket) {
                    m_link->send("-");
                }
            }
            if (nak)
                break;
            const int left = remainingMs(deadline);
            if (left == 0 || (!pump(left) && (m_lost || remainingMs(deadline) == 0)))
                return false;
        }
    }
    return false;
}

std::optional<std::string> Client::receive(int timeoutMs)
{
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        if (m_hasQueued) {
            m_hasQueued = false;
            return std::move(m_queued);
        }
        while (m_parser.hasEvent()) {
            Event e = m_parser.takeEvent();
            if (e.kind == Event::Kind::Ack)
                continue; // a late ack of a packet given up on
            if (e.kind == Event::Kind::BadPacket) {
                if (m_acks && !m_link->send("-"))
                    markLost();
                continue;
            }
            if (e.kind != Event::Kind::Packet)
                continue; // notifications and stray naks
            if (m_acks && m_deferAcks) {
                m_pendingAcks += '+';
            } else if (m_acks && !m_link->send("+")) {
                markLost();
                return std::nullopt;
            }
            if (isOutputPacket(e.payload)) {
                if (const auto text = fromHex(std::string_view(e.payload).substr(1)))
                    m_output.append(text->begin(), text->end());
                continue;
            }
            return std::move(e.payload);
        }
        const int left = remainingMs(deadline);
        if (left == 0 && timeoutMs > 0)
            return std::nullopt;
        if (!pump(left) && (m_lost || remainingMs(deadline) == 0))
            return std::nullopt;
    }
}

std::optional<std::string> Client::request(std::string_view payload, int timeoutMs)
{
    if (!send(payload, timeoutMs))
        return std::nullopt;
    return receive(timeoutMs);
}

bool Client::sendRaw(std::string_view bytes)
{
    if (m_lost)
        return false;
    if (!m_pendingAcks.empty()) {
        m_pendingAcks.append(bytes);
        const bool ok = m_link->send(m_pendingAcks);
        m_pendingAcks.clear();
        if (!ok)
            markLost();
        return ok;
    }
    if (!m_link->send(bytes)) {
        markLost();
        return false;
    }
    return true;
}

bool Client::interrupt()
{
    if (m_lost || !flushAcks())
        return false;
    if (!m_link->send(std::string_view("\x03", 1))) {
        markLost();
        return false;
    }
    return true;
}

bool Client::flushAcks()
{
    return m_pendingAcks.empty() || sendRaw({});
}

std::string Client::takeOutput()
{
    return std::exchange(m_output, {});
}

std::string Client::greet()
{
    const auto reply = request("qSupported:multiprocess+;swbreak+;hwbreak+");
    if (!reply) {
        return m_lost ? "The server closed the connection at once: it is not a GDB server, or it serves another client already."
                      : "The server does not answer in the GDB remote protocol.";
    }
    if (reply->empty() || isErrorReply(*reply)) {
        // An old server without qSupported still speaks the protocol.
        return {};
    }
    bool noAck = false;
    size_t pos = 0;
    while (pos <= reply->size()) {
        const size_t end = std::min(reply->find(';', pos), reply->size());
        const std::string item = reply->substr(pos, end - pos);
        if (item.rfind("PacketSize=", 0) == 0) {
            const unsigned long v = std::strtoul(item.c_str() + 11, nullptr, 16);
            if (v >= 64)
                m_packetSize = static_cast<uint32_t>(std::min<unsigned long>(v, 0x10000));
        } else if (item == "QStartNoAckMode+") {
            noAck = true;
        }
        pos = end + 1;
    }
    if (noAck) {
        if (const auto ok = request("QStartNoAckMode"); ok && *ok == "OK")
            m_acks = false;
    }
    return {};
}

} // namespace sim::gdb
