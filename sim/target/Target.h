// The simulated target: a Cortex-M4 (Unicorn) running a firmware image in a
// background thread. Target time advances with executed instructions at the
// core clock and while the core sleeps; a memory-mapped timer shows it to the
// firmware. The probe side reads and writes memory and samples BSQ records
// between instruction slices, so that time stamps step by exactly the period.
#pragma once

#include "sim/target/ElfImage.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

struct uc_struct;

namespace sim {

struct TargetConfig {
    uint32_t clockHz = 64'000'000;
    bool fast = false;                 // run as fast as the host allows
    uint32_t sliceInstructions = 2000; // longest stretch run without a look at the probe
    // A full BSQ FIFO drops the newest record and counts it, as a real probe
    // must. Off, the target's virtual time waits for the reader instead, so
    // fast mode gives the same records whatever the host's load.
    bool dropWhenFull = true;
};

struct BsqBlock {
    uint32_t address = 0;
    uint32_t size = 0;
};

struct MemoryRegion {
    uint32_t base = 0;
    uint32_t size = 0;
};

class Target {
public:
    // Memory every simulated device has; the firmware's own memory (its
    // segments and allocated sections, e.g. flash at 0x08000000) comes on top.
    static constexpr uint32_t kFlashBase = 0x00000000;
    static constexpr uint32_t kFlashSize = 1024 * 1024;
    static constexpr uint32_t kRamBase = 0x20000000;
    static constexpr uint32_t kRamSize = 256 * 1024;
    static constexpr uint32_t kTimerBase = 0x40000000;
    static constexpr uint32_t kPpbBase = 0xE0000000; // system control space, plain RAM here
    static constexpr uint32_t kPpbSize = 1024 * 1024;
    // Peripherals live here on every Cortex-M; pages the firmware touches read as zero.
    static constexpr uint32_t kPeripheralBase = 0x40000000;
    static constexpr uint32_t kPeripheralEnd = 0x60000000;
    // Sane limits for memory taken from a firmware image.
    static constexpr uint32_t kMaxRegionBytes = 64 * 1024 * 1024;
    static constexpr uint64_t kMaxMappedBytes = 512ull * 1024 * 1024;
    static constexpr uint32_t kStackReserve = 64 * 1024; // below an initial SP outside the image's memory

    Target(const TargetConfig& config, ElfImage image);
    ~Target();
    Target(const Target&) = delete;
    Target& operator=(const Target&) = delete;

    // Builds the core and loads the image; the core then runs. Empty = ok.
    std::string start();

    void go();
    void halt();
    void reset(); // the core stays halted at the reset vector, target time restarts at 0
    bool isHalted() const { return m_halted.load(); }
    std::string fault() const;

    bool read(uint32_t address, void* dst, uint32_t size) const;
    bool write(uint32_t address, const void* src, uint32_t size);
    // Memory the probe may read and write (known once start() succeeded).
    bool isMapped(uint32_t address, uint32_t size) const;
    const std::vector<MemoryRegion>& memoryMap() const { return m_regions; }
    // Peripheral pages the firmware touched (reading zeros) and its accesses there.
    uint32_t peripheralPages() const;
    uint64_t peripheralAccesses() const;

    // Memory access for several steps under one hold of the engine, so that
    // the core does not run in between (one probe transaction).
    class Access {
    public:
        bool read(uint32_t address, void* dst, uint32_t size) const;
        bool write(uint32_t address, const void* src, uint32_t size);

    private:
        friend class Target;
        Access(uc_struct* uc, const Target& target) : m_uc(uc), m_target(target) {}
        uc_struct* m_uc; // not owned
        const Target& m_target;
    };
    bool transact(const std::function<bool(Access&)>& steps);

    // r0..r12, sp, lr, pc, xPSR as the core has them between slices (a
    // debugger's view). False before the core is built.
    static constexpr int kCoreRegisters = 17;
    bool coreRegisters(uint32_t (&regs)[kCoreRegisters]) const;

    // Fast mode without drops: after each slice the core asks `mustWait`
    // (under the engine, so it sees a consistent memory) and, when it answers
    // yes, sleeps until the next readerDone(). Empty = never waits.
    void setReaderHold(std::function<bool(const Access&)> mustWait);
    void readerDone();

    uint64_t timeUs() const;
    uint64_t executedInstructions() const;

    // BSQ: records of a 32-bit time stamp (target us) and each block's bytes,
    // taken every periodUs of target time, kept in a FIFO of fifoBytes.
    void bsqStart(std::vector<BsqBlock> blocks, uint32_t periodUs, size_t fifoBytes);
    void bsqStop();
    // Moves whole records into dst; returns the bytes moved.
    uint32_t bsqRead(uint8_t* dst, uint32_t max);
    uint64_t bsqDropped() const;
    size_t bsqQueued() const;
    uint32_t bsqRecordSize() const;

private:
    struct UcDeleter {
        void operator()(uc_struct* uc) const;
    };
    using Engine = std::unique_ptr<uc_struct, UcDeleter>;

    std::string planMemory();
    std::string buildEngine();
    void runLoop();
    bool step(); // false: the core must wait for the reader before it moves on
    void waitForReader(uint64_t seenReads);
    void wakeReaderWaiter();
    uint64_t readerProgress() const;
    void pace();
    bool sampleBsq(uint64_t stampUs); // false: not taken, the FIFO is full and waits
    uint64_t toUs(uint64_t cycles) const;
    uint64_t toCycles(uint64_t us) const; // first cycle at or after `us`
    class ProbeSide;
    static uint64_t timerRead(uc_struct* uc, uint64_t offset, unsigned size, void* user);
    static void timerWrite(uc_struct* uc, uint64_t offset, unsigned size, uint64_t value, void* user);
    static bool onUnmapped(uc_struct* uc, int type, uint64_t address, int size, int64_t value, void* user);
    static uint64_t peripheralRead(uc_struct* uc, uint64_t offset, unsigned size, void* user);
    static void peripheralWrite(uc_struct* uc, uint64_t offset, unsigned size, uint64_t value, void* user);

    const TargetConfig m_config;
    const ElfImage m_image;
    std::vector<MemoryRegion> m_regions; // set by start(), then fixed
    uint32_t m_vectorTable = kFlashBase;

    // Everything below up to the FIFO belongs to whoever holds m_engineMutex:
    // the run thread for one slice at a time, the probe side in between.
    mutable std::mutex m_engineMutex;
    Engine m_uc;
    uint32_t m_pc = 0;
    uint64_t m_cycles = 0;
    uint64_t m_instructions = 0;
    bool m_sleeping = false;
    bool m_sleepRequested = false;
    uint64_t m_wakeCycles = 0;
    uint32_t m_timeHiLatch = 0;
    std::string m_fault;
    std::vector<uint32_t> m_peripheralPages;
    uint64_t m_peripheralAccesses = 0;
    bool m_bsqOn = false;
    std::vector<BsqBlock> m_blocks;
    uint32_t m_periodUs = 0;
    uint64_t m_nextSampleUs = 0;
    uint64_t m_nextSampleCycles = 0;
    std::vector<uint8_t> m_record;
    std::function<bool(const Access&)> m_readerHold;

    // BSQ FIFO: whole records in a ring; the newest record is dropped when full.
    mutable std::mutex m_fifoMutex;
    std::vector<uint8_t> m_fifo;
    uint32_t m_fifoRecordSize = 0;
    size_t m_fifoCapacity = 0; // records
    size_t m_fifoHead = 0;     // oldest record
    size_t m_fifoCount = 0;
    uint64_t m_fifoDropped = 0;
    // Where the core waits for a reader (see TargetConfig::dropWhenFull): every
    // BSQ or up-channel read counts, so the run thread looks again after each.
    std::condition_variable m_readerCv;
    uint64_t m_reads = 0;

    // Run control.
    std::mutex m_runMutex;
    std::condition_variable m_runCv;
    std::atomic<bool> m_halted{true};
    std::atomic<bool> m_quit{false};
    // Probe-side callers waiting for the engine: the run thread lets them in
    // first, so that a fast-running core cannot starve the probe.
    mutable std::atomic<int> m_waiters{0};
    std::chrono::steady_clock::time_point m_paceWall;
    uint64_t m_paceUs = 0;
    std::thread m_thread;
};

} // namespace sim
