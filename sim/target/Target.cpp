#include "sim/target/Target.h"

#include <unicorn/unicorn.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <pthread.h>

namespace sim {
namespace {

constexpr uint64_t kNever = ~uint64_t(0);

uint32_t word(const ElfImage& image, uint32_t address, bool& found)
{
    for (const auto& seg : image.segments) {
        if (address >= seg.address && uint64_t(address) + 4 <= uint64_t(seg.address) + seg.bytes.size()) {
            const uint8_t* p = seg.bytes.data() + (address - seg.address);
            found = true;
            return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
        }
    }
    found = false;
    return 0;
}

bool inside(uint32_t address, uint32_t size, uint32_t base, uint32_t length)
{
    return address >= base && uint64_t(address) + size <= uint64_t(base) + length;
}

} // namespace

// Engine access from the probe side: announces itself so the run thread steps aside.
class Target::ProbeSide {
public:
    explicit ProbeSide(const Target& t) : m_t(t)
    {
        ++m_t.m_waiters;
        m_t.m_engineMutex.lock();
        --m_t.m_waiters;
    }
    ~ProbeSide() { m_t.m_engineMutex.unlock(); }
    ProbeSide(const ProbeSide&) = delete;
    ProbeSide& operator=(const ProbeSide&) = delete;

private:
    const Target& m_t;
};

void Target::UcDeleter::operator()(uc_struct* uc) const
{
    uc_close(uc);
}

Target::Target(const TargetConfig& config, ElfImage image)
    : m_config(config), m_image(std::move(image))
{
}

Target::~Target()
{
    {
        std::lock_guard lk(m_runMutex);
        m_quit = true;
        m_halted = true;
    }
    m_runCv.notify_all();
    wakeReaderWaiter();
    if (m_thread.joinable())
        m_thread.join();
}

bool Target::isMapped(uint32_t address, uint32_t size) const
{
    if (inside(address, size, kPpbBase, kPpbSize))
        return true;
    return std::any_of(m_regions.begin(), m_regions.end(),
                       [&](const MemoryRegion& r) { return inside(address, size, r.base, r.size); });
}

uint32_t Target::peripheralPages() const
{
    std::lock_guard engine(m_engineMutex);
    return static_cast<uint32_t>(m_peripheralPages.size());
}

uint64_t Target::peripheralAccesses() const
{
    std::lock_guard engine(m_engineMutex);
    return m_peripheralAccesses;
}

std::string Target::planMemory()
{
    constexpr uint64_t kPage = 0x1000;
    struct Span {
        uint64_t begin, end;
    };
    std::vector<Span> spans = {{kFlashBase, uint64_t(kFlashBase) + kFlashSize}, {kRamBase, uint64_t(kRamBase) + kRamSize}};
    const auto where = [](uint64_t a, uint64_t n) {
        char text[64];
        std::snprintf(text, sizeof text, "0x%08llX (%llu bytes)", static_cast<unsigned long long>(a),
                      static_cast<unsigned long long>(n));
        return std::string(text);
    };
    const auto add = [&](uint64_t a, uint64_t n) -> std::string {
        const uint64_t end = a + n;
        if (end > 0x1'0000'0000ull || (a < kPeripheralEnd && end > kPeripheralBase) || end > kPpbBase)
            return "firmware segment at " + where(a, n) + " outside target memory";
        if (n > kMaxRegionBytes)
            return "firmware memory at " + where(a, n) + " larger than the simulated target allows ("
                + std::to_string(kMaxRegionBytes / (1024 * 1024)) + " MB a region)";
        spans.push_back({a & ~(kPage - 1), (end + kPage - 1) & ~(kPage - 1)});
        return {};
    };
    for (const auto& seg : m_image.segments) {
        if (auto err = add(seg.address, seg.bytes.size()); !err.empty())
            return err;
    }
    for (const auto& r : m_image.memory) {
        if (auto err = add(r.address, r.size); !err.empty())
            return err;
    }
    // The vector table: at 0, or else at the start of the image's lowest
    // segment (a part that boots from flash at 0x08000000 maps it at 0 too).
    bool found = false;
    (void)word(m_image, kFlashBase, found);
    m_vectorTable = kFlashBase;
    if (!found && !m_image.segments.empty()) {
        m_vectorTable = std::min_element(m_image.segments.begin(), m_image.segments.end(), [](const auto& a, const auto& b) {
                            return a.address < b.address;
                        })->address;
    }
    const auto merge = [&] {
        std::sort(spans.begin(), spans.end(), [](const Span& a, const Span& b) { return a.begin < b.begin; });
        std::vector<Span> merged;
        for (const Span& sp : spans) {
            if (!merged.empty() && sp.begin <= merged.back().end)
                merged.back().end = std::max(merged.back().end, sp.end);
            else
                merged.push_back(sp);
        }
        spans = std::move(merged);
    };
    merge();
    // A stack above the image's memory (the linker script's end of RAM).
    const uint32_t sp = word(m_image, m_vectorTable, found);
    const auto covered = [&](uint64_t a) { return std::any_of(spans.begin(), spans.end(), [&](const Span& x) { return a >= x.begin && a < x.end; }); };
    if (found && sp >= kStackReserve && !covered(sp - 4)) {
        if (auto err = add(sp - kStackReserve, kStackReserve); !err.empty())
            return "initial stack pointer " + where(sp, 0).substr(0, 10) + " outside target memory";
        merge();
    }
    uint64_t total = 0;
    m_regions.clear();
    for (const Span& sp2 : spans) {
        total += sp2.end - sp2.begin;
        m_regions.push_back({static_cast<uint32_t>(sp2.begin), static_cast<uint32_t>(sp2.end - sp2.begin)});
    }
    if (total > kMaxMappedBytes)
        return "firmware needs " + std::to_string(total / (1024 * 1024)) + " MB of memory, more than the simulated target's "
            + std::to_string(kMaxMappedBytes / (1024 * 1024)) + " MB";
    return {};
}

bool Target::onUnmapped(uc_struct* uc, int, uint64_t address, int, int64_t, void* user)
{
    // Runs on the run thread inside a slice: the engine mutex is held.
    auto* self = static_cast<Target*>(user);
    if (address < kPeripheralBase || address >= kPeripheralEnd)
        return false; // a wild access: the core locks up, as it would fault
    const auto page = static_cast<uint32_t>(address & ~uint64_t(0xFFF));
    if (uc_mmio_map(uc, page, 0x1000, &Target::peripheralRead, self, &Target::peripheralWrite, self) != UC_ERR_OK)
        return false;
    self->m_peripheralPages.push_back(page);
    return true;
}

uint64_t Target::peripheralRead(uc_struct*, uint64_t, unsigned, void* user)
{
    ++static_cast<Target*>(user)->m_peripheralAccesses;
    return 0;
}

void Target::peripheralWrite(uc_struct*, uint64_t, unsigned, uint64_t, void* user)
{
    ++static_cast<Target*>(user)->m_peripheralAccesses;
}

std::string Target::buildEngine()
{
    uc_engine* raw = nullptr;
    // UC_MODE_MCLASS would force another core model: thumb mode plus the M4 model.
    if (uc_open(UC_ARCH_ARM, UC_MODE_THUMB, &raw) != UC_ERR_OK)
        return "cannot create the simulated core";
    Engine uc(raw);
    if (uc_ctl_set_cpu_model(raw, UC_CPU_ARM_CORTEX_M4) != UC_ERR_OK)
        return "cannot select the Cortex-M4 core model";
    for (const MemoryRegion& r : m_regions) {
        if (uc_mem_map(raw, r.base, r.size, UC_PROT_ALL) != UC_ERR_OK)
            return "cannot map the target memory";
    }
    if (uc_mem_map(raw, kPpbBase, kPpbSize, UC_PROT_ALL) != UC_ERR_OK
        || uc_mmio_map(raw, kTimerBase, 0x1000, &Target::timerRead, this, &Target::timerWrite, this) != UC_ERR_OK)
        return "cannot map the target memory";
    uc_hook unmapped = 0;
    if (uc_hook_add(raw, &unmapped, UC_HOOK_MEM_UNMAPPED, reinterpret_cast<void*>(&Target::onUnmapped), this, 1, 0) != UC_ERR_OK)
        return "cannot watch the peripheral space";
    m_peripheralPages.clear();
    for (const auto& seg : m_image.segments) {
        if (uc_mem_write(raw, seg.address, seg.bytes.data(), seg.bytes.size()) != UC_ERR_OK)
            return "cannot load the firmware";
    }
    bool haveSp = false;
    bool havePc = false;
    const uint32_t sp = word(m_image, m_vectorTable, haveSp);
    const uint32_t reset = word(m_image, m_vectorTable + 4, havePc);
    if (!haveSp || !havePc || (reset & 1u) == 0) {
        char text[80];
        std::snprintf(text, sizeof text, "firmware has no vector table at address 0x%08X", m_vectorTable);
        return text;
    }
    // The core finds its vectors where the firmware put them.
    const uint32_t vtor = m_vectorTable;
    uc_mem_write(raw, 0xE000ED08, &vtor, 4);
    uc_reg_write(raw, UC_ARM_REG_SP, &sp);
    m_pc = reset & ~1u;
    m_uc = std::move(uc);
    return {};
}

std::string Target::start()
{
    if (auto err = planMemory(); !err.empty())
        return err;
    {
        std::lock_guard lk(m_engineMutex);
        if (auto err = buildEngine(); !err.empty())
            return err;
    }
    m_thread = std::thread([this] { runLoop(); });
    go();
    return {};
}

void Target::go()
{
    {
        std::lock_guard engine(m_engineMutex);
        if (!m_fault.empty())
            return; // a locked-up core stays halted until reset
        std::lock_guard lk(m_runMutex);
        m_paceWall = std::chrono::steady_clock::now();
        m_paceUs = toUs(m_cycles);
        m_halted = false;
    }
    m_runCv.notify_all();
}

void Target::halt()
{
    {
        std::lock_guard lk(m_runMutex);
        m_halted = true;
    }
    m_runCv.notify_all();
    wakeReaderWaiter();
    // Once the engine is ours, the slice in flight has ended and no other starts.
    std::lock_guard engine(m_engineMutex);
}

void Target::reset()
{
    halt();
    std::lock_guard engine(m_engineMutex);
    m_uc.reset();
    m_cycles = 0;
    m_instructions = 0;
    m_sleeping = false;
    m_sleepRequested = false;
    m_fault.clear();
    m_nextSampleUs = 0;
    m_nextSampleCycles = 0;
    if (auto err = buildEngine(); !err.empty())
        m_fault = err;
}

std::string Target::fault() const
{
    std::lock_guard engine(m_engineMutex);
    return m_fault;
}

bool Target::read(uint32_t address, void* dst, uint32_t size) const
{
    if (!isMapped(address, size))
        return false;
    ProbeSide engine(*this);
    return m_uc && uc_mem_read(m_uc.get(), address, dst, size) == UC_ERR_OK;
}

bool Target::write(uint32_t address, const void* src, uint32_t size)
{
    if (!isMapped(address, size))
        return false;
    ProbeSide engine(*this);
    return m_uc && uc_mem_write(m_uc.get(), address, src, size) == UC_ERR_OK;
}

bool Target::Access::read(uint32_t address, void* dst, uint32_t size) const
{
    return m_target.isMapped(address, size) && uc_mem_read(m_uc, address, dst, size) == UC_ERR_OK;
}

bool Target::Access::write(uint32_t address, const void* src, uint32_t size)
{
    return m_target.isMapped(address, size) && uc_mem_write(m_uc, address, src, size) == UC_ERR_OK;
}

bool Target::transact(const std::function<bool(Access&)>& steps)
{
    ProbeSide engine(*this);
    if (!m_uc)
        return false;
    Access access(m_uc.get(), *this);
    return steps(access);
}

bool Target::coreRegisters(uint32_t (&regs)[kCoreRegisters]) const
{
    ProbeSide engine(*this);
    if (!m_uc)
        return false;
    static constexpr int kIds[kCoreRegisters - 1] = {
        UC_ARM_REG_R0, UC_ARM_REG_R1, UC_ARM_REG_R2,  UC_ARM_REG_R3,  UC_ARM_REG_R4,  UC_ARM_REG_R5,
        UC_ARM_REG_R6, UC_ARM_REG_R7, UC_ARM_REG_R8,  UC_ARM_REG_R9,  UC_ARM_REG_R10, UC_ARM_REG_R11,
        UC_ARM_REG_R12, UC_ARM_REG_SP, UC_ARM_REG_LR, UC_ARM_REG_XPSR,
    };
    for (int i = 0; i < kCoreRegisters - 1; ++i) {
        uint32_t v = 0;
        uc_reg_read(m_uc.get(), kIds[i], &v);
        regs[i < 15 ? i : 16] = v;
    }
    regs[15] = m_pc; // where the next slice starts
    return true;
}

uint64_t Target::timeUs() const
{
    std::lock_guard engine(m_engineMutex);
    return toUs(m_cycles);
}

uint64_t Target::executedInstructions() const
{
    std::lock_guard engine(m_engineMutex);
    return m_instructions;
}

uint64_t Target::toUs(uint64_t cycles) const
{
    const uint64_t hz = m_config.clockHz;
    return cycles / hz * 1'000'000 + cycles % hz * 1'000'000 / hz;
}

uint64_t Target::toCycles(uint64_t us) const
{
    const uint64_t hz = m_config.clockHz;
    return us / 1'000'000 * hz + (us % 1'000'000 * hz + 999'999) / 1'000'000;
}

uint64_t Target::timerRead(uc_struct*, uint64_t offset, unsigned, void* user)
{
    // Runs on the run thread inside a slice: the engine mutex is held. Within
    // a slice the timer shows the time at the slice's start.
    auto* self = static_cast<Target*>(user);
    const uint64_t now = self->toUs(self->m_cycles);
    switch (offset) {
    case 0x0:
        self->m_timeHiLatch = static_cast<uint32_t>(now >> 32);
        return static_cast<uint32_t>(now);
    case 0x4:
        return self->m_timeHiLatch;
    case 0xC:
        return self->m_config.clockHz;
    default:
        return 0;
    }
}

void Target::timerWrite(uc_struct* uc, uint64_t offset, unsigned, uint64_t value, void* user)
{
    auto* self = static_cast<Target*>(user);
    if (offset != 0x8)
        return;
    const uint64_t now = self->toUs(self->m_cycles);
    const auto delta = static_cast<int32_t>(static_cast<uint32_t>(value) - static_cast<uint32_t>(now));
    if (delta <= 0)
        return;
    self->m_wakeCycles = self->toCycles(now + static_cast<uint64_t>(delta));
    self->m_sleepRequested = true;
    uc_emu_stop(uc);
}

void Target::bsqStart(std::vector<BsqBlock> blocks, uint32_t periodUs, size_t fifoBytes)
{
    uint32_t recordSize = 4;
    for (const auto& b : blocks)
        recordSize += b.size;
    {
        std::lock_guard fifo(m_fifoMutex);
        m_fifoRecordSize = recordSize;
        m_fifoCapacity = std::max<size_t>(1, fifoBytes / recordSize);
        m_fifo.assign(m_fifoCapacity * recordSize, 0);
        m_fifoHead = 0;
        m_fifoCount = 0;
        m_fifoDropped = 0;
        ++m_reads;
        m_readerCv.notify_all();
    }
    ProbeSide engine(*this);
    m_blocks = std::move(blocks);
    m_record.assign(recordSize, 0);
    m_periodUs = periodUs;
    // Records are taken at whole multiples of the period of target time.
    const uint64_t now = toUs(m_cycles);
    m_nextSampleUs = (now + periodUs - 1) / periodUs * periodUs;
    if (toCycles(m_nextSampleUs) < m_cycles)
        m_nextSampleUs += periodUs;
    m_nextSampleCycles = toCycles(m_nextSampleUs);
    m_bsqOn = true;
}

void Target::bsqStop()
{
    {
        ProbeSide engine(*this);
        m_bsqOn = false;
        m_blocks.clear();
    }
    std::lock_guard fifo(m_fifoMutex);
    m_fifoHead = 0;
    m_fifoCount = 0;
    ++m_reads;
    m_readerCv.notify_all();
}

uint32_t Target::bsqRead(uint8_t* dst, uint32_t max)
{
    std::lock_guard fifo(m_fifoMutex);
    if (m_fifoRecordSize == 0)
        return 0;
    const size_t n = std::min<size_t>(m_fifoCount, max / m_fifoRecordSize);
    for (size_t i = 0; i < n; ++i) {
        std::memcpy(dst + i * m_fifoRecordSize, m_fifo.data() + m_fifoHead * m_fifoRecordSize, m_fifoRecordSize);
        m_fifoHead = (m_fifoHead + 1) % m_fifoCapacity;
    }
    m_fifoCount -= n;
    ++m_reads;
    m_readerCv.notify_all();
    return static_cast<uint32_t>(n * m_fifoRecordSize);
}

uint64_t Target::bsqDropped() const
{
    std::lock_guard fifo(m_fifoMutex);
    return m_fifoDropped;
}

size_t Target::bsqQueued() const
{
    std::lock_guard fifo(m_fifoMutex);
    return m_fifoCount;
}

uint32_t Target::bsqRecordSize() const
{
    std::lock_guard fifo(m_fifoMutex);
    return m_fifoRecordSize;
}

bool Target::sampleBsq(uint64_t stampUs)
{
    if (!m_config.dropWhenFull) {
        std::lock_guard fifo(m_fifoMutex);
        if (m_fifoRecordSize == m_record.size() && m_fifoCount == m_fifoCapacity)
            return false;
    }
    const auto stamp = static_cast<uint32_t>(stampUs);
    std::memcpy(m_record.data(), &stamp, 4);
    size_t at = 4;
    for (const auto& b : m_blocks) {
        if (uc_mem_read(m_uc.get(), b.address, m_record.data() + at, b.size) != UC_ERR_OK)
            std::memset(m_record.data() + at, 0, b.size);
        at += b.size;
    }
    std::lock_guard fifo(m_fifoMutex);
    if (m_fifoRecordSize != m_record.size())
        return true; // a restart with another layout is under way
    if (m_fifoCount == m_fifoCapacity) {
        ++m_fifoDropped;
        return true;
    }
    const size_t slot = (m_fifoHead + m_fifoCount) % m_fifoCapacity;
    std::memcpy(m_fifo.data() + slot * m_fifoRecordSize, m_record.data(), m_fifoRecordSize);
    ++m_fifoCount;
    return true;
}

void Target::setReaderHold(std::function<bool(const Access&)> mustWait)
{
    {
        ProbeSide engine(*this);
        m_readerHold = std::move(mustWait);
    }
    readerDone();
}

void Target::readerDone()
{
    std::lock_guard fifo(m_fifoMutex);
    ++m_reads;
    m_readerCv.notify_all();
}

uint64_t Target::readerProgress() const
{
    std::lock_guard fifo(m_fifoMutex);
    return m_reads;
}

void Target::waitForReader(uint64_t seenReads)
{
    // Only a read, a stop, a halt or the end of the target frees the core.
    std::unique_lock fifo(m_fifoMutex);
    m_readerCv.wait(fifo, [&] { return m_reads != seenReads || m_halted.load() || m_quit.load(); });
}

void Target::wakeReaderWaiter()
{
    std::lock_guard fifo(m_fifoMutex);
    m_readerCv.notify_all();
}

void Target::runLoop()
{
    pthread_setname_np(pthread_self(), "sim-target");
    for (;;) {
        {
            std::unique_lock lk(m_runMutex);
            m_runCv.wait(lk, [this] { return m_quit || !m_halted.load(); });
            if (m_quit)
                return;
        }
        while (m_waiters.load() > 0)
            std::this_thread::yield();
        // A read between the step and the wait must not be missed: count first.
        const uint64_t seen = readerProgress();
        if (!step()) {
            waitForReader(seen);
            continue;
        }
        pace();
    }
}

bool Target::step()
{
    std::lock_guard engine(m_engineMutex);
    if (m_halted.load() || !m_uc)
        return true;
    // Records due now are taken before the core moves on.
    while (m_bsqOn && m_cycles >= m_nextSampleCycles) {
        if (!sampleBsq(m_nextSampleUs))
            return false;
        m_nextSampleUs += m_periodUs;
        m_nextSampleCycles = toCycles(m_nextSampleUs);
    }
    const uint64_t now = m_cycles;
    const uint64_t sampleAt = m_bsqOn ? m_nextSampleCycles : kNever;
    if (m_sleeping) {
        // Nothing runs while the core sleeps: time jumps to the next event,
        // in real time at most a millisecond per step so pacing stays smooth.
        uint64_t to = std::min(m_wakeCycles, sampleAt);
        if (!m_config.fast)
            to = std::min(to, now + toCycles(1000));
        m_cycles = std::max(to, now + 1);
        if (m_cycles >= m_wakeCycles)
            m_sleeping = false;
        return true;
    }
    const uint64_t count = std::min<uint64_t>(m_config.sliceInstructions, sampleAt - now);
    m_sleepRequested = false;
    const uc_err err = uc_emu_start(m_uc.get(), m_pc | 1u, ~uint64_t(0), 0, count);
    uint32_t pc = 0;
    uc_reg_read(m_uc.get(), UC_ARM_REG_PC, &pc);
    m_pc = pc & ~1u;
    // A slice cut short by a sleep counts whole: Unicorn does not tell how
    // far it got, and the error is below one slice of target time.
    m_cycles += count;
    m_instructions += count;
    if (err != UC_ERR_OK) {
        char where[32];
        std::snprintf(where, sizeof where, " at 0x%08X", m_pc);
        m_fault = std::string("core locked up: ") + uc_strerror(err) + where;
        m_halted = true;
        return true;
    }
    if (m_sleepRequested && m_wakeCycles > m_cycles)
        m_sleeping = true;
    if (!m_config.dropWhenFull && m_readerHold) {
        const Access memory(m_uc.get(), *this);
        return !m_readerHold(memory);
    }
    return true;
}

void Target::pace()
{
    if (m_config.fast)
        return;
    // Lock order everywhere: engine before run control, never nested the other way.
    const uint64_t targetUs = timeUs();
    std::unique_lock lk(m_runMutex);
    const auto wallUs = static_cast<uint64_t>(
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - m_paceWall).count());
    const uint64_t ranUs = targetUs >= m_paceUs ? targetUs - m_paceUs : 0;
    if (ranUs > wallUs + 1000) {
        m_runCv.wait_for(lk, std::chrono::microseconds(ranUs - wallUs),
                         [this] { return m_quit || m_halted.load(); });
    } else if (wallUs > ranUs + 200'000) {
        // Far behind (a slow host): catch up no further back than this.
        m_paceWall = std::chrono::steady_clock::now();
        m_paceUs = targetUs;
    }
}

} // namespace sim
