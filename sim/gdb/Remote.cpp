#include "sim/gdb/Remote.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <numeric>

namespace sim::gdb {
namespace {

constexpr int kDetectTimeoutMs = 500;
constexpr uint32_t kMaxRateHz = 100'000;
// Blocks closer than this are read as one span: one packet is cheaper than a few bytes more.
constexpr uint32_t kMergeGap = 32;
// How many periods the sampler may fall behind and still catch up.
constexpr int kCatchUpPeriods = 32;

std::string hex32(uint32_t v)
{
    char buf[16];
    std::snprintf(buf, sizeof buf, "%x", v);
    return buf;
}

std::string address8(uint32_t v)
{
    char buf[16];
    std::snprintf(buf, sizeof buf, "0x%08X", v);
    return buf;
}

std::string lower(std::string s)
{
    std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return s;
}

} // namespace

bool parseAddress(const std::string& text, std::string& host, uint16_t& port)
{
    std::string h = text;
    std::string p;
    if (!h.empty() && h.front() == '[') {
        const auto close = h.find(']');
        if (close == std::string::npos)
            return false;
        p = close + 1 < h.size() && h[close + 1] == ':' ? h.substr(close + 2) : std::string();
        if (close + 1 < h.size() && h[close + 1] != ':')
            return false;
        h = h.substr(1, close - 1);
    } else if (const auto colon = h.find(':'); colon != std::string::npos && h.find(':', colon + 1) == std::string::npos) {
        p = h.substr(colon + 1);
        h = h.substr(0, colon);
        if (p.empty())
            return false;
    }
    if (h.empty() || h.find_first_of(" \t/") != std::string::npos)
        return false;
    port = Remote::kDefaultPort;
    if (!p.empty()) {
        if (p.size() > 5 || !std::all_of(p.begin(), p.end(), [](unsigned char c) { return std::isdigit(c) != 0; }))
            return false;
        const unsigned long v = std::stoul(p);
        if (v == 0 || v > 65535)
            return false;
        port = static_cast<uint16_t>(v);
    }
    host = h;
    return true;
}

std::unique_ptr<Remote> Remote::open(const std::string& host, uint16_t port, std::string& error)
{
    auto link = Link::connectTcp(host, port, kConnectTimeoutMs, error);
    if (!link)
        return nullptr;
    auto remote = std::make_unique<Remote>(std::move(link), host + ":" + std::to_string(port));
    if (auto err = remote->greet(); !err.empty()) {
        error = "The server at " + host + ":" + std::to_string(port) + " is not a usable GDB server: " + err;
        return nullptr;
    }
    return remote;
}

Remote::Remote(std::unique_ptr<Link> link, std::string where) : m_client(std::move(link)), m_where(std::move(where)) {}

Remote::~Remote()
{
    stopSampler();
}

std::string Remote::greet()
{
    std::lock_guard lk(m_mutex);
    return m_client.greet();
}

void Remote::fail(std::string reason)
{
    m_lastError = std::move(reason);
}

void Remote::lose()
{
    m_lost = true;
    m_connected = false;
    m_lastError = "The GDB server at " + m_where + " closed the connection; the target's state is unknown.";
}

std::string Remote::lastError() const
{
    std::lock_guard lk(m_mutex);
    return m_lastError;
}

bool Remote::connected() const
{
    std::lock_guard lk(m_mutex);
    return m_connected;
}

Remote::Mode Remote::mode() const
{
    std::lock_guard lk(m_mutex);
    return m_mode;
}

std::string Remote::modeText() const
{
    std::lock_guard lk(m_mutex);
    switch (m_mode) {
    case Mode::Background:
        return "background reads";
    case Mode::StopReadContinue:
        return "stop-read-continue (intrusive: the core halts for every read)";
    default:
        return "unknown";
    }
}

uint32_t Remote::sustainableHz() const
{
    std::lock_guard lk(m_mutex);
    return m_rateHz;
}

std::string Remote::connect(bool attach)
{
    std::lock_guard lk(m_mutex);
    if (m_lost)
        return m_lastError;
    m_attach = attach;
    if (attach) {
        // A debugger owns the run state: never stop the core to find out how
        // the server reads. Servers that take a second client read in the background.
        m_mode = Mode::Background;
        m_running = true;
    } else {
        const auto reply = m_client.request("?");
        if (!reply) {
            if (m_client.lost())
                lose();
            else
                fail("The GDB server at " + m_where + " does not answer.");
            return m_lastError;
        }
        m_running = false; // servers halt the core when a client attaches
        if (auto err = detectMode(); !err.empty())
            return err;
    }
    measureRate();
    m_connected = !m_lost;
    return m_lost ? m_lastError : std::string();
}

std::string Remote::detectMode()
{
    // Let the core run and ask for a word: a server that reads in the
    // background answers; one that stops on any packet sends a stop reply
    // (QEMU) or nothing at all (the byte is dropped) until interrupted.
    if (!m_client.send("c"))
        return m_client.lost() ? (lose(), m_lastError) : (fail("The GDB server at " + m_where + " does not accept \"continue\"."), m_lastError);
    m_running = true;
    std::optional<std::string> reply;
    if (m_client.send("m0,4", kDetectTimeoutMs))
        reply = m_client.receive(kDetectTimeoutMs);
    if (m_client.lost()) {
        lose();
        return m_lastError;
    }
    if (reply && isStopReply(*reply)) {
        m_mode = Mode::StopReadContinue;
        m_running = false;
        return {};
    }
    if (reply) {
        m_mode = Mode::Background;
        return stopCore() ? std::string() : m_lastError;
    }
    // No answer yet: a server that dropped the read, or one merely slow (a
    // loaded host). Interrupt and see what comes first: the read's late
    // answer precedes the stop reply on the wire; a dropped read never comes.
    if (!m_client.interrupt()) {
        lose();
        return m_lastError;
    }
    m_mode = Mode::StopReadContinue;
    for (;;) {
        const auto next = m_client.receive();
        if (!next) {
            if (m_client.lost())
                lose();
            else
                fail("The GDB server at " + m_where + " did not stop the target.");
            return m_lastError;
        }
        if (isStopReply(*next))
            break;
        m_mode = Mode::Background;
    }
    m_running = false;
    return {};
}

void Remote::measureRate()
{
    // Time a few reads of a sample's size; stopping and continuing the core
    // costs about two more round trips each.
    constexpr int kReads = 16;
    uint8_t buf[64];
    const auto t0 = Clock::now();
    for (int i = 0; i < kReads && !m_lost; ++i) {
        const auto reply = m_client.request("m0," + hex32(sizeof buf));
        if (!reply && m_client.lost())
            lose();
        (void)buf;
    }
    const double us = std::chrono::duration<double, std::micro>(Clock::now() - t0).count() / kReads;
    const double cycle = std::max(1.0, us * (m_mode == Mode::StopReadContinue ? 3.0 : 1.0));
    m_rateHz = static_cast<uint32_t>(std::clamp(1e6 / cycle, 1.0, double(kMaxRateHz)));
}

bool Remote::stopCore()
{
    if (!m_running)
        return true;
    if (!m_client.interrupt()) {
        lose();
        return false;
    }
    for (;;) {
        const auto reply = m_client.receive();
        if (!reply) {
            if (m_client.lost())
                lose();
            else
                fail("The GDB server at " + m_where + " did not stop the target.");
            return false;
        }
        if (isStopReply(*reply)) {
            m_running = false;
            return true;
        }
        // A late answer to an earlier packet: not ours to wait for.
    }
}

bool Remote::resumeCore()
{
    if (m_running)
        return true;
    if (!m_client.send("c")) {
        if (m_client.lost())
            lose();
        else
            fail("The GDB server at " + m_where + " did not accept \"continue\".");
        return false;
    }
    m_running = true;
    return true;
}

bool Remote::access(const std::function<bool()>& steps)
{
    if (m_lost)
        return false;
    const bool pause = m_running && m_mode != Mode::Background;
    if (pause && !stopCore())
        return false;
    const bool ok = steps();
    if (pause && !m_lost && !resumeCore())
        return false;
    return ok;
}

std::optional<std::string> Remote::answer(const std::string& packet, const std::string& what)
{
    auto reply = m_client.request(packet);
    // In background mode a stop reply means the core stopped by itself
    // (a breakpoint): the packet's own answer still follows.
    while (reply && isStopReply(*reply)) {
        m_running = false;
        reply = m_client.receive();
    }
    if (!reply) {
        if (m_client.lost())
            lose();
        else
            fail("The GDB server at " + m_where + " did not answer " + what + ".");
    }
    return reply;
}

bool Remote::readLocked(uint32_t address, void* dst, uint32_t size)
{
    auto* out = static_cast<uint8_t*>(dst);
    const uint32_t chunk = std::max<uint32_t>(1, m_client.maxReadBytes());
    uint32_t done = 0;
    while (done < size) {
        const uint32_t n = std::min(chunk, size - done);
        const uint32_t at = address + done;
        const auto reply = answer("m" + hex32(at) + "," + hex32(n), "a read of " + address8(at));
        if (!reply)
            return false;
        const auto bytes = isErrorReply(*reply) ? std::nullopt : fromHex(*reply);
        if (!bytes || bytes->size() != n) {
            fail("The GDB server refused to read " + std::to_string(n) + " bytes at " + address8(at) + " ("
                 + (reply->empty() ? std::string("no answer") : reply->substr(0, 16)) + ").");
            return false;
        }
        std::memcpy(out + done, bytes->data(), n);
        done += n;
    }
    return true;
}

bool Remote::writeLocked(uint32_t address, const void* src, uint32_t size)
{
    const auto* in = static_cast<const uint8_t*>(src);
    const uint32_t chunk = std::max<uint32_t>(1, m_client.maxWriteBytes());
    for (uint32_t done = 0; done < size;) {
        const uint32_t n = std::min(chunk, size - done);
        const uint32_t at = address + done;
        const auto reply = answer("M" + hex32(at) + "," + hex32(n) + ":" + toHex(in + done, n), "a write to " + address8(at));
        if (!reply)
            return false;
        if (*reply != "OK") {
            fail("The GDB server refused to write " + std::to_string(n) + " bytes at " + address8(at) + " ("
                 + (reply->empty() ? std::string("not supported") : reply->substr(0, 16)) + ").");
            return false;
        }
        done += n;
    }
    return true;
}

bool Remote::read(uint32_t address, void* dst, uint32_t size)
{
    std::lock_guard lk(m_mutex);
    return access([&] { return readLocked(address, dst, size); });
}

qtx::Read Remote::reader()
{
    return [this](uint32_t address, void* dst, uint32_t size) { return readLocked(address, dst, size); };
}

int Remote::halt()
{
    std::lock_guard lk(m_mutex);
    if (!m_connected)
        return -1;
    if (m_attach) {
        fail("Attached beside a debugger: halting is left to the debugger.");
        return -1;
    }
    return stopCore() ? 0 : -1;
}

int Remote::go()
{
    std::lock_guard lk(m_mutex);
    if (!m_connected)
        return -1;
    if (m_attach) {
        fail("Attached beside a debugger: running the target is left to the debugger.");
        return -1;
    }
    return resumeCore() ? 0 : -1;
}

std::string Remote::monitor(const std::string& command, bool& answered)
{
    answered = false;
    m_client.takeOutput();
    const auto reply = m_client.request("qRcmd," + toHex(command.data(), command.size()));
    if (!reply) {
        if (m_client.lost())
            lose();
        return {};
    }
    std::string output = m_client.takeOutput();
    if (reply->empty() || isErrorReply(*reply))
        return output;
    if (*reply != "OK") {
        // Some servers answer with the whole output as one hex string.
        if (const auto text = fromHex(*reply))
            output.append(text->begin(), text->end());
    }
    const std::string l = lower(output);
    answered = l.find("unknown command") == std::string::npos && l.find("invalid command") == std::string::npos;
    return output;
}

int Remote::reset()
{
    std::lock_guard lk(m_mutex);
    if (!m_connected)
        return -1;
    if (m_attach) {
        fail("Attached beside a debugger: resetting the target is left to the debugger.");
        return -1;
    }
    const bool wasRunning = m_running;
    if (!stopCore())
        return -1;
    // OpenOCD and most probe servers know "reset halt"; QEMU's monitor knows "system_reset".
    for (const char* command : {"reset halt", "system_reset"}) {
        bool answered = false;
        monitor(command, answered);
        if (m_lost)
            return -1;
        if (answered) {
            m_running = false;
            m_cbAddress = 0; // the firmware builds its control block anew
            return 0;
        }
    }
    if (wasRunning)
        resumeCore();
    fail("The GDB server at " + m_where
         + " has no reset command (\"monitor reset halt\" and \"monitor system_reset\" were refused); the target was left as it was.");
    return -1;
}

int Remote::isHalted()
{
    std::lock_guard lk(m_mutex);
    if (!m_connected)
        return -1;
    if (m_attach)
        return 0; // the debugger's business; sampling goes on either way
    return m_running ? 0 : 1;
}

int Remote::bsqStart(const TARVO_BSQ_BLOCK* blocks, uint32_t count, uint32_t periodUs)
{
    stopSampler();
    std::lock_guard lk(m_mutex);
    if (!m_connected)
        return TARVO_BSQ_ERR_GENERIC;
    if (blocks == nullptr || count == 0 || periodUs < kMinPeriodUs)
        return TARVO_BSQ_ERR_GENERIC;
    if (count > kMaxBlocks)
        return TARVO_BSQ_ERR_TOO_MANY_BLOCKS;
    uint64_t recordSize = 4;
    for (uint32_t i = 0; i < count; ++i) {
        if (blocks[i].NumBytes == 0 || uint64_t(blocks[i].Addr) + blocks[i].NumBytes > 0x100000000ull)
            return TARVO_BSQ_ERR_GENERIC;
        recordSize += blocks[i].NumBytes;
    }
    if (recordSize > kMaxRecordSize)
        return TARVO_BSQ_ERR_NO_MEMORY;

    // Neighbouring blocks share one read, as far as a reply packet allows.
    std::vector<uint32_t> order(count);
    std::iota(order.begin(), order.end(), 0u);
    std::sort(order.begin(), order.end(), [&](uint32_t a, uint32_t b) { return blocks[a].Addr < blocks[b].Addr; });
    const uint32_t maxSpan = std::max<uint32_t>(1, m_client.maxReadBytes());
    std::vector<Span> spans;
    std::vector<Piece> pieces(count);
    for (const uint32_t i : order) {
        const uint32_t a = blocks[i].Addr;
        const uint32_t end = a + blocks[i].NumBytes;
        if (!spans.empty()) {
            Span& s = spans.back();
            const uint64_t sEnd = uint64_t(s.address) + s.size;
            if (a <= sEnd + kMergeGap && std::max<uint64_t>(sEnd, end) - s.address <= maxSpan) {
                s.size = static_cast<uint32_t>(std::max<uint64_t>(sEnd, end) - s.address);
                pieces[i] = {static_cast<uint32_t>(spans.size() - 1), a - s.address, blocks[i].NumBytes};
                continue;
            }
        }
        spans.push_back({a, blocks[i].NumBytes});
        pieces[i] = {static_cast<uint32_t>(spans.size() - 1), 0, blocks[i].NumBytes};
    }
    // One trial read: a block the server refuses fails the start with its reason.
    std::vector<uint8_t> scratch;
    const bool ok = access([&] {
        for (const Span& s : spans) {
            scratch.resize(s.size);
            if (!readLocked(s.address, scratch.data(), s.size))
                return false;
        }
        return true;
    });
    if (!ok)
        return TARVO_BSQ_ERR_GENERIC;
    m_spans = std::move(spans);
    m_pieces = std::move(pieces);
    m_recordSize = static_cast<uint32_t>(recordSize);
    m_periodUs = periodUs;
    {
        std::lock_guard fl(m_fifoMutex);
        m_fifo.clear();
        m_fifoHead = 0;
        m_dropped = 0;
        m_samplingFailed = false;
    }
    m_stopSampling = false;
    m_sampler = std::thread([this] { sampleLoop(); });
    return 0;
}

void Remote::sampleLoop()
{
    std::vector<std::vector<uint8_t>> spanData;
    std::vector<uint8_t> record;
    auto next = Clock::now();
    const auto period = std::chrono::microseconds(m_periodUs);
    for (;;) {
        uint32_t stamp = 0;
        {
            std::unique_lock lk(m_mutex);
            if (m_wake.wait_until(lk, next, [this] { return m_stopSampling.load(); }))
                return;
            const bool ok = sampleSpans(spanData, stamp);
            if (!ok) {
                std::lock_guard fl(m_fifoMutex);
                m_samplingFailed = true;
                return;
            }
            record.resize(m_recordSize);
            std::memcpy(record.data(), &stamp, 4);
            size_t at = 4;
            for (const Piece& p : m_pieces) {
                std::memcpy(record.data() + at, spanData[p.span].data() + p.offset, p.size);
                at += p.size;
            }
        }
        {
            std::lock_guard fl(m_fifoMutex);
            if (m_fifo.size() - m_fifoHead + record.size() > kFifoBytes) {
                ++m_dropped; // a real target does not wait for a slow reader
            } else {
                m_fifo.insert(m_fifo.end(), record.begin(), record.end());
            }
        }
        next += period;
        // A late wake-up (a busy host) is made good by the next samples, which
        // carry their own time stamps; further behind (a server slower than
        // the period), the missed samples are skipped rather than sent in a burst.
        if (const auto now = Clock::now(); next + kCatchUpPeriods * period < now)
            next = now;
    }
}

bool Remote::sampleSpans(std::vector<std::vector<uint8_t>>& data, uint32_t& stamp)
{
    if (m_lost)
        return false;
    // One batch: interrupt (where the server needs it), every span's read,
    // so a record costs one round trip; "continue" goes without waiting.
    const bool pause = m_running && m_mode != Mode::Background;
    // The replies' acks ride with the "continue": one write a record.
    struct AckBatch {
        Client& client;
        explicit AckBatch(Client& c, bool on) : client(c) { client.deferAcks(on); }
        ~AckBatch()
        {
            client.deferAcks(false);
            client.flushAcks();
        }
    } acks(m_client, pause);
    std::string batch;
    if (pause)
        batch += '\x03';
    for (const Span& s : m_spans)
        batch += framePacket("m" + hex32(s.address) + "," + hex32(s.size));
    if (!m_client.sendRaw(batch)) {
        lose();
        return false;
    }
    const auto failed = [this](const char* what) {
        if (m_client.lost())
            lose();
        else
            fail("The GDB server at " + m_where + " " + what + ".");
        return false;
    };
    if (pause) {
        for (;;) {
            const auto reply = m_client.receive();
            if (!reply)
                return failed("did not stop the target");
            if (isStopReply(*reply))
                break;
        }
        m_running = false;
    }
    stamp = static_cast<uint32_t>(std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - m_epoch).count());
    data.resize(m_spans.size());
    bool ok = true;
    for (size_t i = 0; i < m_spans.size(); ++i) {
        auto reply = m_client.receive();
        while (reply && isStopReply(*reply)) {
            m_running = false; // stopped by itself (background mode)
            reply = m_client.receive();
        }
        if (!reply)
            return failed("did not answer a read");
        const auto bytes = isErrorReply(*reply) ? std::nullopt : fromHex(*reply);
        if (!bytes || bytes->size() != m_spans[i].size) {
            fail("The GDB server refused to read " + std::to_string(m_spans[i].size) + " bytes at "
                 + address8(m_spans[i].address) + " (" + reply->substr(0, 16) + ").");
            ok = false; // the other replies are still to be taken off the line
            continue;
        }
        data[i] = std::move(*bytes);
    }
    if (pause) {
        if (!m_client.sendRaw(framePacket("c"))) {
            lose();
            return false;
        }
        m_running = true;
    }
    return ok;
}

void Remote::stopSampler()
{
    {
        std::lock_guard lk(m_mutex);
        m_stopSampling = true;
    }
    m_wake.notify_all();
    if (m_sampler.joinable())
        m_sampler.join();
}

int Remote::bsqRead(void* dst, uint32_t size)
{
    std::lock_guard fl(m_fifoMutex);
    if (dst == nullptr || m_recordSize == 0)
        return -1;
    const size_t avail = m_fifo.size() - m_fifoHead;
    const size_t n = std::min<size_t>(avail, std::min<uint32_t>(size, 0x7FFFFFFF) / m_recordSize * m_recordSize);
    if (n == 0)
        return m_samplingFailed ? -1 : 0; // -1: the data so far was delivered; the reason is in lastError()
    std::memcpy(dst, m_fifo.data() + m_fifoHead, n);
    m_fifoHead += n;
    if (m_fifoHead == m_fifo.size()) {
        m_fifo.clear();
        m_fifoHead = 0;
    } else if (m_fifoHead > kFifoBytes / 2) {
        m_fifo.erase(m_fifo.begin(), m_fifo.begin() + static_cast<std::ptrdiff_t>(m_fifoHead));
        m_fifoHead = 0;
    }
    return static_cast<int>(n);
}

int Remote::bsqStop()
{
    stopSampler();
    std::lock_guard lk(m_mutex);
    m_spans.clear();
    m_pieces.clear();
    return 0;
}

std::string Remote::bsqStatus() const
{
    std::string mode;
    {
        std::lock_guard lk(m_mutex);
        mode = m_mode == Mode::Background ? "background" : m_mode == Mode::StopReadContinue ? "stop-read-continue" : "unknown";
    }
    std::lock_guard fl(m_fifoMutex);
    const size_t queued = m_recordSize == 0 ? 0 : (m_fifo.size() - m_fifoHead) / m_recordSize;
    return "queued=" + std::to_string(queued) + " dropped=" + std::to_string(m_dropped) + " mode=" + mode;
}

int Remote::qtxControl(uint32_t command, void* arg, const qtx::Ranges& searchRanges)
{
    std::lock_guard lk(m_mutex);
    if (!m_connected)
        return -1;
    const auto findBlock = [&] {
        if (m_cbAddress != 0)
            return true;
        access([&] {
            m_cbAddress = qtx::scan(searchRanges, reader(), std::max<uint32_t>(4, m_client.maxReadBytes() & ~3u));
            return true;
        });
        return m_cbAddress != 0;
    };
    switch (command) {
    case TARVO_QTX_CMD_START:
        m_qtxStarted = true;
        m_cbAddress = 0;
        return 0;
    case TARVO_QTX_CMD_STOP:
        m_qtxStarted = false;
        return 0;
    case TARVO_QTX_CMD_GETNUMBUF: {
        if (!m_qtxStarted)
            return -1;
        if (!findBlock())
            return m_lost ? -1 : TARVO_QTX_ERR_NOT_FOUND;
        const uint32_t direction = arg != nullptr ? *static_cast<const uint32_t*>(arg) : TARVO_QTX_DIR_UP;
        int n = -1;
        return access([&] { return (n = qtx::channels(m_cbAddress, direction, reader())) >= 0; }) ? n : -1;
    }
    case TARVO_QTX_CMD_GETDESC: {
        if (!m_qtxStarted || arg == nullptr)
            return -1;
        if (!findBlock())
            return m_lost ? -1 : TARVO_QTX_ERR_NOT_FOUND;
        auto* desc = static_cast<TARVO_QTX_CHANNEL_DESC*>(arg);
        return access([&] { return qtx::describe(m_cbAddress, *desc, reader()); }) ? 0 : -1;
    }
    default:
        return -1;
    }
}

int Remote::qtxRead(uint32_t channel, char* dst, uint32_t max)
{
    std::lock_guard lk(m_mutex);
    if (!m_connected || !m_qtxStarted || dst == nullptr)
        return -1;
    if (m_cbAddress == 0)
        return TARVO_QTX_ERR_NOT_FOUND;
    // Stopping the core for every poll of a busy reader would stall the
    // firmware: drain at most once a millisecond there.
    const auto now = Clock::now();
    if (m_mode == Mode::StopReadContinue && m_running && now - m_lastDrain < std::chrono::milliseconds(1))
        return 0;
    m_lastDrain = now;
    int result = -1;
    access([&] {
        result = qtx::drain(m_cbAddress, channel, dst, max, reader(),
                            [this](uint32_t a, const void* src, uint32_t n) { return writeLocked(a, src, n); });
        return result >= 0;
    });
    return result;
}

} // namespace sim::gdb
