// The GDB back end of the probe library: a target behind any GDB server
// (OpenOCD, a probe maker's server, pyOCD, a Black Magic Probe, QEMU).
// Run control, memory access, BSQ sampling in a thread of its own with host
// time stamps, and the QTX ring drained through memory packets.
// Every public function is safe to call from any thread.
#pragma once

#include "probe/TarvoApi.h"
#include "sim/Qtx.h"
#include "sim/gdb/Client.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace sim::gdb {

// "HOST[:PORT]" (port 3333 by default, OpenOCD's; "[v6]:PORT" for IPv6).
// False on a malformed text.
bool parseAddress(const std::string& text, std::string& host, uint16_t& port);

class Remote {
public:
    // How memory is read while the core runs.
    enum class Mode {
        Unknown,
        Background,       // the server reads while the core runs (OpenOCD and most probe servers)
        StopReadContinue, // any packet stops the core (QEMU, Black Magic Probe): interrupt, read, continue
    };

    static constexpr uint16_t kDefaultPort = 3333;
    static constexpr int kConnectTimeoutMs = 3000;
    static constexpr uint32_t kMaxBlocks = 64;
    static constexpr uint32_t kMaxRecordSize = 1024;
    static constexpr uint32_t kFifoBytes = 4 * 1024 * 1024;
    static constexpr uint32_t kMinPeriodUs = 10;

    // Opens the TCP connection and greets the server. Null with the reason in `error`.
    static std::unique_ptr<Remote> open(const std::string& host, uint16_t port, std::string& error);
    // Over an established link (tests hand in one end of a socket pair).
    Remote(std::unique_ptr<Link> link, std::string where);
    ~Remote();
    Remote(const Remote&) = delete;
    Remote& operator=(const Remote&) = delete;

    std::string greet();
    // Learns the run state and, unless attached beside a debugger, how the
    // server treats packets while the core runs, and the sampling rate it
    // sustains. Empty on success, else the reason.
    std::string connect(bool attach);

    // Run control: 0 done, -1 failed or declined (reason in lastError()).
    int halt();
    int go();
    int reset();
    int isHalted(); // 1, 0, or -1 without a connection

    bool connected() const;
    Mode mode() const;
    std::string modeText() const;
    uint32_t sustainableHz() const;

    int bsqStart(const TARVO_BSQ_BLOCK* blocks, uint32_t count, uint32_t periodUs);
    int bsqRead(void* dst, uint32_t size);
    int bsqStop();
    std::string bsqStatus() const; // "queued=N dropped=M mode=..."

    int qtxControl(uint32_t command, void* arg, const qtx::Ranges& searchRanges);
    int qtxRead(uint32_t channel, char* dst, uint32_t max);

    // Reads target memory (halting around the read where the server needs it).
    bool read(uint32_t address, void* dst, uint32_t size);
    std::string lastError() const;

private:
    struct Span {
        uint32_t address;
        uint32_t size;
    };
    struct Piece { // where a block's bytes come from
        uint32_t span;
        uint32_t offset;
        uint32_t size;
    };
    using Clock = std::chrono::steady_clock;

    // All below with m_mutex held.
    bool access(const std::function<bool()>& steps); // reads while the core is still, in stop mode
    bool stopCore();                                 // interrupt and wait for the stop reply
    bool resumeCore();
    // The answer to a memory packet, after any stop replies in between;
    // none when the server did not answer (`what` names the access) or is lost.
    std::optional<std::string> answer(const std::string& packet, const std::string& what);
    bool readLocked(uint32_t address, void* dst, uint32_t size);
    bool sampleSpans(std::vector<std::vector<uint8_t>>& data, uint32_t& stamp);
    bool writeLocked(uint32_t address, const void* src, uint32_t size);
    std::string detectMode();
    void measureRate();
    void fail(std::string reason);
    void lose();
    std::string monitor(const std::string& command, bool& answered);
    qtx::Read reader();

    void sampleLoop();
    void stopSampler();

    mutable std::mutex m_mutex;
    Client m_client;
    std::string m_where;
    Mode m_mode = Mode::Unknown;
    bool m_attach = false;
    bool m_connected = false;
    bool m_running = false;
    bool m_lost = false;
    uint32_t m_rateHz = 1000;
    std::string m_lastError;
    Clock::time_point m_epoch = Clock::now();

    // BSQ
    std::vector<Span> m_spans;
    std::vector<Piece> m_pieces;
    uint32_t m_recordSize = 0;
    uint32_t m_periodUs = 1000;
    std::thread m_sampler;
    std::atomic<bool> m_stopSampling{false};
    std::condition_variable m_wake;
    mutable std::mutex m_fifoMutex;
    std::vector<uint8_t> m_fifo; // whole records, oldest first from m_fifoHead
    size_t m_fifoHead = 0;
    uint64_t m_dropped = 0;
    bool m_samplingFailed = false;

    // QTX
    bool m_qtxStarted = false;
    uint32_t m_cbAddress = 0;
    Clock::time_point m_lastDrain{};
};

} // namespace sim::gdb
