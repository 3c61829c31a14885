#include "sim/Probe.h"

#include "sim/Devices.h"
#include "sim/Qtx.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <functional>
#include <sstream>

namespace sim {
namespace {

namespace fs = std::filesystem;

constexpr uint32_t kQtxHeader = qtx::kHeader;
constexpr uint32_t kQtxChannelSize = qtx::kChannelSize;

std::string lower(std::string s)
{
    std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return s;
}

std::string trim(const std::string& s)
{
    const auto b = s.find_first_not_of(" \t\r\n");
    if (b == std::string::npos)
        return {};
    const auto e = s.find_last_not_of(" \t\r\n");
    return s.substr(b, e - b + 1);
}

bool parseNumber(const std::string& text, uint32_t& out)
{
    if (text.empty())
        return false;
    char* end = nullptr;
    const unsigned long long v = std::strtoull(text.c_str(), &end, 0);
    if (*end != '\0' || v > 0xFFFFFFFFull || text[0] == '-')
        return false;
    out = static_cast<uint32_t>(v);
    return true;
}

void anchor() {}

std::string libraryDir()
{
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&anchor), &info) == 0 || info.dli_fname == nullptr)
        return {};
    return fs::path(info.dli_fname).parent_path().string();
}

// Finds the QTX control block in the ranges the simulated target maps.
uint32_t scanControlBlock(const Target& target, const qtx::Ranges& ranges, const qtx::Read& read)
{
    qtx::Ranges mapped;
    for (const auto& r : ranges) {
        if (target.isMapped(r.first, r.second))
            mapped.push_back(r);
    }
    return qtx::scan(mapped, read);
}

bool exists(const std::string& p)
{
    std::error_code ec;
    return !p.empty() && fs::is_regular_file(p, ec);
}

} // namespace

Probe& Probe::instance()
{
    static Probe probe;
    return probe;
}

Probe::Probe() : m_libraryDir(libraryDir())
{
    // A script named in the environment configures the probe before the
    // program gets to send "ScriptFile = ...": serial number, device dialog.
    if (const char* env = std::getenv("TARVO_SIM_SCRIPT"); env != nullptr && *env != '\0') {
        Script s;
        if (loadScript(env, s).empty())
            mergeScript(m_script, s);
    }
}

const char* Probe::open(TARVO_LOG* log)
{
    std::lock_guard lk(m_mutex);
    m_log = log;
    if (m_selectionFailed) {
        m_openError = "No Tarvo found with the selected serial number or host.";
        return m_openError.c_str();
    }
    if (m_viaGdb) {
        // The connection and the server's greeting happen here, so that a
        // wrong address or a server of another kind is reported at once.
        m_remote.reset();
        std::string error;
        m_remote = gdb::Remote::open(m_gdbHost, m_gdbPort, error);
        if (!m_remote) {
            m_openError = error;
            m_lastError = error;
            return m_openError.c_str();
        }
    }
    m_open = true;
    return nullptr;
}

void Probe::close()
{
    std::lock_guard lk(m_mutex);
    closeLocked();
}

void Probe::logLine(const std::string& text) const
{
    if (m_log != nullptr)
        m_log(text.c_str());
}

std::string Probe::targetStatus() const
{
    if (!m_target)
        return "no simulated target";
    char text[96];
    std::snprintf(text, sizeof text, "peripheral_pages=%u peripheral_accesses=%llu", m_target->peripheralPages(),
                  static_cast<unsigned long long>(m_target->peripheralAccesses()));
    return text;
}

void Probe::closeLocked()
{
    if (m_target && m_target->peripheralPages() > 0) {
        logLine("Simulated target: the firmware used " + std::to_string(m_target->peripheralPages())
                + " pages of peripheral registers, which read as zero here (" + targetStatus() + ").");
    }
    m_gdbServer.reset();
    m_target.reset();
    m_remote.reset();
    m_bsqRunning = false;
    m_qtxStarted = false;
    m_cbAddress = 0;
    m_open = false;
    m_device = -1;
    m_searchRanges.clear();
    m_programElf.clear();
    m_scriptNamesFirmware = false;
}

int Probe::selectBySerial(uint32_t serial)
{
    std::lock_guard lk(m_mutex);
    const uint32_t own = m_script.serialNumber.value_or(kDefaultSerial);
    m_viaGdb = false;
    m_selectionFailed = serial != own;
    if (m_selectionFailed)
        m_lastError = "No probe with serial number " + std::to_string(serial) + " is attached (the simulated one has " +
                      std::to_string(own) + ").";
    return m_selectionFailed ? -1 : 0;
}

int Probe::selectIp(const char* host)
{
    std::lock_guard lk(m_mutex);
    // "TCP/IP" reaches a GDB server at HOST[:PORT]; the simulated target stays on "USB".
    m_viaGdb = host != nullptr && gdb::parseAddress(trim(host), m_gdbHost, m_gdbPort);
    m_selectionFailed = !m_viaGdb;
    if (m_selectionFailed)
        m_lastError = "Expected HOST or HOST:PORT, got \"" + std::string(host != nullptr ? host : "") + "\".";
    return m_selectionFailed ? 1 : 0;
}

void Probe::configJtag(int, int)
{
    // A single simulated device on the scan chain: nothing to adjust.
}

int Probe::execCommand(const char* command, char* error, int errorSize)
{
    std::string err;
    std::string answer;
    {
        std::lock_guard lk(m_mutex);
        // Queries answer with a text through the error buffer and succeed:
        // the reason of the last failed call (so the program can say why),
        // and the state of BSQ and of the simulated target.
        const std::string query = command != nullptr ? lower(trim(command)) : std::string();
        if (query == "getlasterror")
            answer = m_lastError;
        else if (query == "getbsqstatus")
            answer = bsqStatus();
        else if (query == "gettargetstatus")
            answer = targetStatus();
        else
            err = command != nullptr ? runCommand(command) : "No command given.";
    }
    // A query answers through the same buffer the errors use, and succeeds.
    const std::string& text = err.empty() ? answer : err;
    if (error != nullptr && errorSize > 0)
        std::snprintf(error, static_cast<size_t>(errorSize), "%s", text.c_str());
    return err.empty() ? 0 : -1;
}

std::string Probe::runCommand(const std::string& command)
{
    const std::string text = trim(command);
    std::string key;
    std::string value;
    if (const auto eq = text.find('='); eq != std::string::npos) {
        key = lower(trim(text.substr(0, eq)));
        value = trim(text.substr(eq + 1));
    } else {
        const auto sp = text.find_first_of(" \t");
        key = lower(text.substr(0, sp));
        value = sp == std::string::npos ? std::string() : trim(text.substr(sp + 1));
    }
    if (key == "device" && m_viaGdb) {
        // The GDB server knows its target; the name only labels it.
        if (value.empty())
            return "No device name given.";
        m_remoteDevice = value;
        m_device = findDevice(value);
        return {};
    }
    if (key == "device") {
        const int index = findDevice(value);
        if (index < 0)
            return "Unknown device \"" + value + "\".";
        m_device = index;
        return {};
    }
    if (key == "elffile") {
        // The program's own ELF file: the firmware the target runs unless a
        // script names one.
        if (value.empty())
            return "Expected a file name.";
        m_programElf = value;
        return {};
    }
    if (key == "scriptfile") {
        const std::string path = resolveScript(value);
        Script s;
        if (auto err = loadScript(path, s); !err.empty())
            return "Failed to load script file: " + err + ".";
        m_scriptNamesFirmware = m_scriptNamesFirmware || s.firmware.has_value();
        mergeScript(m_script, s);
        return {};
    }
    if (key == "setskipiniteccramonconnect") {
        uint32_t v = 0;
        return parseNumber(value, v) && v <= 1 ? std::string() : "Expected 0 or 1.";
    }
    if (key == "setmsgboxtimeout") {
        char* end = nullptr;
        std::strtol(value.c_str(), &end, 10);
        return !value.empty() && *end == '\0' ? std::string() : "Expected a number.";
    }
    if (key == "setqtxsearchranges") {
        std::istringstream in(value);
        std::vector<std::pair<uint32_t, uint32_t>> ranges;
        std::string a;
        std::string s;
        while (in >> a) {
            uint32_t address = 0;
            uint32_t size = 0;
            if (!(in >> s) || !parseNumber(a, address) || !parseNumber(s, size) || size == 0)
                return "Syntax error in search ranges: expected <address> <size> pairs.";
            ranges.emplace_back(address, size);
        }
        if (ranges.empty())
            return "Syntax error in search ranges: expected <address> <size> pairs.";
        m_searchRanges = std::move(ranges);
        return {};
    }
    return "Unknown command \"" + text + "\".";
}

std::string Probe::resolveScript(const std::string& path) const
{
    // The program passes the project's path verbatim: try it as given
    // (absolute, or relative to the current folder), then next to the library.
    if (exists(path) || fs::path(path).is_absolute())
        return path;
    const std::string beside = (fs::path(m_libraryDir) / path).string();
    return exists(beside) ? beside : path;
}

std::string Probe::firmwarePath() const
{
    // A script of this connection names the firmware; otherwise the
    // program's ELF file runs, before what earlier scripts named.
    if (m_script.firmware && (m_scriptNamesFirmware || m_programElf.empty())) {
        if (exists(*m_script.firmware))
            return *m_script.firmware;
        // A script from the source tree names firmware that the build puts next to the library.
        const std::string beside = (fs::path(m_libraryDir) / fs::path(*m_script.firmware).filename()).string();
        return exists(beside) ? beside : *m_script.firmware;
    }
    if (!m_programElf.empty())
        return m_programElf;
    return (fs::path(m_libraryDir) / "demo.elf").string();
}

int Probe::selectInterface(int tif)
{
    std::lock_guard lk(m_mutex);
    if (tif != TARVO_TIF_JTAG && tif != TARVO_TIF_SWD && tif != TARVO_TIF_FINE)
        return -1;
    m_tif = tif;
    return 0;
}

void Probe::setSpeed(uint32_t kHz)
{
    std::lock_guard lk(m_mutex);
    m_speedKHz = kHz;
}

int Probe::connect()
{
    std::lock_guard lk(m_mutex);
    if (!m_open)
        return -1;
    if (m_viaGdb) {
        if (!m_remote)
            return -1;
        if (m_remote->connected())
            return 0;
        if (auto err = m_remote->connect(m_script.attach.value_or(false)); !err.empty()) {
            m_lastError = err;
            return -1;
        }
        return 0;
    }
    if (m_target)
        return 0;
    if (m_device < 0 && m_script.device)
        m_device = findDevice(*m_script.device);
    if (m_device < 0) {
        m_lastError = "No target device selected.";
        return -1;
    }
    ElfImage image;
    const std::string elf = firmwarePath();
    if (auto err = loadElf(elf, image); !err.empty()) {
        m_lastError = "Firmware: " + err;
        return -1;
    }
    TargetConfig cfg;
    cfg.fast = m_script.fast.value_or(false);
    cfg.clockHz = m_script.clockHz.value_or(cfg.clockHz);
    cfg.sliceInstructions = m_script.sliceInstructions.value_or(cfg.sliceInstructions);
    cfg.dropWhenFull = !cfg.fast || m_script.dropWhenFull.value_or(false);
    auto target = std::make_unique<Target>(cfg, std::move(image));
    if (auto err = target->start(); !err.empty()) {
        m_lastError = err;
        return -1;
    }
    if (m_script.gdbServerPort) {
        std::string err;
        m_gdbServer = GdbServer::start(*target, *m_script.gdbServerPort, err);
        if (!m_gdbServer) {
            m_lastError = "GDB server: " + err;
            return -1;
        }
    }
    m_target = std::move(target);
    m_readsOk = 0;
    std::string map = "Simulated target memory:";
    for (const MemoryRegion& r : m_target->memoryMap()) {
        char range[48];
        std::snprintf(range, sizeof range, " 0x%08X..0x%08X", r.base, r.base + (r.size - 1));
        map += range;
    }
    logLine(map);
    return 0;
}

int Probe::selectDialog()
{
    std::lock_guard lk(m_mutex);
    // No window here: the script stands in for the user.
    if (m_script.deviceDialog) {
        if (lower(*m_script.deviceDialog) == "cancel")
            return -1;
        return findDevice(*m_script.deviceDialog);
    }
    if (m_script.device) {
        if (const int index = findDevice(*m_script.device); index >= 0)
            return index;
    }
    return findDevice(kDefaultDevice);
}

int Probe::deviceInfo(int index, TARVO_DEVICE_INFO* info)
{
    const auto list = devices();
    if (index == -1 && info == nullptr)
        return static_cast<int>(list.size());
    if (info == nullptr || index < 0 || index >= static_cast<int>(list.size()))
        return -1;
    if (info->SizeOfStruct < offsetof(TARVO_DEVICE_INFO, aReserved))
        return -1;
    const Device& d = list[static_cast<size_t>(index)];
    info->sName = d.name;
    info->sManu = d.manufacturer;
    std::fill(std::begin(info->aCoreId), std::end(info->aCoreId), 0u);
    std::copy(std::begin(d.cores), std::end(d.cores), info->aCoreId);
    info->NumCores = d.numCores;
    info->FlashAddr = d.flashAddr;
    info->FlashSize = d.flashSize;
    info->RAMAddr = d.ramAddr;
    info->RAMSize = d.ramSize;
    info->HasBSQ = d.hasBsq ? 1u : 0u;
    return 0;
}

int Probe::hasCapEx(int cap)
{
    std::lock_guard lk(m_mutex);
    if (cap == TARVO_EMU_CAP_EX_BSQ && m_viaGdb)
        return 1; // sampled by the library over memory reads
    if (cap != TARVO_EMU_CAP_EX_BSQ || m_device < 0)
        return 0;
    return devices()[static_cast<size_t>(m_device)].hasBsq ? 1 : 0;
}

int Probe::serialNumber()
{
    std::lock_guard lk(m_mutex);
    return static_cast<int>(m_script.serialNumber.value_or(kDefaultSerial));
}

void Probe::go()
{
    std::lock_guard lk(m_mutex);
    if (m_remote) {
        if (m_remote->go() != 0)
            m_lastError = m_remote->lastError();
        return;
    }
    if (m_target)
        m_target->go();
}

int Probe::halt()
{
    std::lock_guard lk(m_mutex);
    if (m_remote)
        return remoteResult(m_remote->halt());
    if (!m_target)
        return -1;
    m_target->halt();
    return 0;
}

int Probe::reset()
{
    std::lock_guard lk(m_mutex);
    if (m_remote)
        return remoteResult(m_remote->reset());
    if (!m_target)
        return -1;
    m_target->reset();
    m_cbAddress = 0; // the firmware builds its control block anew
    return 0;
}

int Probe::isOpen()
{
    std::lock_guard lk(m_mutex);
    return m_open ? 1 : 0;
}

int Probe::isConnected()
{
    std::lock_guard lk(m_mutex);
    if (m_remote)
        return m_remote->connected() ? 1 : 0;
    return m_target ? 1 : 0;
}

int Probe::isHalted()
{
    std::lock_guard lk(m_mutex);
    if (m_remote)
        return m_remote->isHalted();
    if (!m_target)
        return -1;
    return m_target->isHalted() ? 1 : 0;
}

int Probe::remoteResult(int rc)
{
    // A failed call keeps the back end's reason where the library keeps its last error.
    if (rc < 0 && m_remote)
        m_lastError = m_remote->lastError();
    return rc;
}

bool Probe::readFails()
{
    if (m_script.failReadAfter && m_readsOk >= *m_script.failReadAfter)
        return true;
    ++m_readsOk;
    return false;
}

int Probe::bsqCaps(TARVO_BSQ_CAPS* caps)
{
    std::lock_guard lk(m_mutex);
    if (caps == nullptr)
        return -1;
    if (!m_viaGdb && m_device >= 0 && !devices()[static_cast<size_t>(m_device)].hasBsq)
        return -1;
    *caps = {};
    caps->SizeOfStruct = sizeof(TARVO_BSQ_CAPS);
    // Over a GDB server: the rate measured on this connection at connect.
    caps->MaxFreq = m_remote ? m_remote->sustainableHz() : kMaxFreqHz;
    caps->MaxNumBlocks = kMaxBlocks;
    caps->MaxRecordSize = kMaxRecordSize;
    caps->FifoSize = kFifoBytes;
    return 0;
}

int Probe::bsqStart(const TARVO_BSQ_BLOCK* blocks, uint32_t count, uint32_t periodUs, uint32_t)
{
    std::lock_guard lk(m_mutex);
    if (m_remote) {
        const int rc = m_remote->bsqStart(blocks, count, periodUs);
        m_bsqRunning = rc >= 0;
        return remoteResult(rc);
    }
    if (!m_target)
        return TARVO_BSQ_ERR_GENERIC;
    if (!devices()[static_cast<size_t>(m_device)].hasBsq)
        return TARVO_BSQ_ERR_NOT_SUPPORTED;
    if (blocks == nullptr || count == 0 || periodUs < 1'000'000 / kMaxFreqHz)
        return TARVO_BSQ_ERR_GENERIC;
    if (count > kMaxBlocks)
        return TARVO_BSQ_ERR_TOO_MANY_BLOCKS;
    std::vector<BsqBlock> list;
    uint64_t recordSize = 4;
    for (uint32_t i = 0; i < count; ++i) {
        if (blocks[i].NumBytes == 0 || !m_target->isMapped(blocks[i].Addr, blocks[i].NumBytes))
            return TARVO_BSQ_ERR_GENERIC;
        recordSize += blocks[i].NumBytes;
        list.push_back({blocks[i].Addr, blocks[i].NumBytes});
    }
    if (recordSize > kMaxRecordSize)
        return TARVO_BSQ_ERR_NO_MEMORY;
    m_target->bsqStart(std::move(list), periodUs, kFifoBytes);
    m_bsqRunning = true;
    return 0;
}

int Probe::bsqRead(void* dst, uint32_t size)
{
    std::lock_guard lk(m_mutex);
    if (m_remote && m_bsqRunning)
        return remoteResult(m_remote->bsqRead(dst, size));
    if (!m_target || !m_bsqRunning || dst == nullptr)
        return -1;
    if (readFails())
        return -1;
    return static_cast<int>(m_target->bsqRead(static_cast<uint8_t*>(dst), std::min<uint32_t>(size, 0x7FFFFFFF)));
}

std::string Probe::bsqStatus() const
{
    if (m_remote)
        return m_remote->bsqStatus();
    if (!m_target || !m_bsqRunning)
        return "queued=0 dropped=0";
    return "queued=" + std::to_string(m_target->bsqQueued()) + " dropped=" + std::to_string(m_target->bsqDropped());
}

int Probe::bsqStop()
{
    std::lock_guard lk(m_mutex);
    if (m_remote) {
        m_bsqRunning = false;
        return m_remote->bsqStop();
    }
    if (!m_target)
        return -1;
    m_target->bsqStop();
    m_bsqRunning = false;
    return 0;
}


std::vector<std::pair<uint32_t, uint32_t>> Probe::searchRanges() const
{
    auto ranges = m_searchRanges;
    if (ranges.empty()) {
        // On a real board only the start of RAM is sure to exist.
        ranges.emplace_back(Target::kRamBase, m_viaGdb ? kGdbSearchSize : Target::kRamSize);
    }
    return ranges;
}

qtx::Read Probe::targetReader() const
{
    return [this](uint32_t address, void* dst, uint32_t size) { return m_target->read(address, dst, size); };
}

bool Probe::findControlBlock()
{
    m_cbAddress = scanControlBlock(*m_target, searchRanges(), targetReader());
    if (m_cbAddress == 0)
        return false;
    holdForDrainedChannels();
    return true;
}

int Probe::qtxControl(uint32_t command, void* arg)
{
    std::lock_guard lk(m_mutex);
    if (m_remote)
        return remoteResult(m_remote->qtxControl(command, arg, searchRanges()));
    switch (command) {
    case TARVO_QTX_CMD_START:
        if (!m_target)
            return -1;
        m_qtxStarted = true;
        m_cbAddress = 0;
        m_drainedChannels = 0;
        holdForDrainedChannels();
        return 0;
    case TARVO_QTX_CMD_STOP:
        m_qtxStarted = false;
        if (m_target)
            m_target->setReaderHold({});
        return 0;
    case TARVO_QTX_CMD_GETNUMBUF: {
        if (!m_target || !m_qtxStarted)
            return -1;
        if (m_cbAddress == 0 && !findControlBlock())
            return TARVO_QTX_ERR_NOT_FOUND;
        const uint32_t direction = arg != nullptr ? *static_cast<const uint32_t*>(arg) : TARVO_QTX_DIR_UP;
        return qtx::channels(m_cbAddress, direction, targetReader());
    }
    case TARVO_QTX_CMD_GETDESC: {
        if (!m_target || !m_qtxStarted || arg == nullptr)
            return -1;
        if (m_cbAddress == 0 && !findControlBlock())
            return TARVO_QTX_ERR_NOT_FOUND;
        return qtx::describe(m_cbAddress, *static_cast<TARVO_QTX_CHANNEL_DESC*>(arg), targetReader()) ? 0 : -1;
    }
    default:
        return -1;
    }
}

int Probe::qtxRead(uint32_t channel, char* dst, uint32_t max)
{
    std::lock_guard lk(m_mutex);
    if (m_remote)
        return remoteResult(m_remote->qtxRead(channel, dst, max));
    if (!m_target || !m_qtxStarted || dst == nullptr)
        return -1;
    if (m_cbAddress == 0 && !findControlBlock())
        return TARVO_QTX_ERR_NOT_FOUND;
    if (readFails())
        return -1;
    // One transaction: the firmware cannot move its offsets half-way through.
    int result = -1;
    const uint32_t cb = m_cbAddress;
    m_target->transact([&](Target::Access& mem) {
        result = qtx::drain(
            cb, channel, dst, max, [&mem](uint32_t a, void* d, uint32_t n) { return mem.read(a, d, n); },
            [&mem](uint32_t a, const void* src, uint32_t n) { return mem.write(a, src, n); },
            [this](uint32_t a, uint32_t n) { return m_target->isMapped(a, n); });
        return result >= 0;
    });
    if (result >= 0 && channel < kMaxQtxChannels && (m_drainedChannels & (1u << channel)) == 0) {
        m_drainedChannels |= 1u << channel;
        holdForDrainedChannels();
    }
    m_target->readerDone();
    return result;
}

void Probe::holdForDrainedChannels()
{
    // In fast mode the core waits while a channel the program drains is half
    // full, so the firmware never finds its ring full for lack of host time.
    // Until the first read every channel counts; after it, channels nobody
    // reads may fill up and the firmware drops there, as on real hardware.
    // The hold looks for the control block itself: the firmware may fill its
    // rings before the program's search finds the block.
    const uint32_t drained = m_drainedChannels != 0 ? m_drainedChannels : ~0u;
    m_target->setReaderHold([target = m_target.get(), cb = m_cbAddress, ranges = searchRanges(), drained,
                             slices = 0u](const Target::Access& mem) mutable {
        if (cb == 0) {
            if (slices++ % 16 != 0)
                return false; // a whole-RAM search on every slice would slow the core down
            cb = scanControlBlock(*target, ranges, [&mem](uint32_t address, void* dst, uint32_t size) {
                return mem.read(address, dst, size);
            });
            if (cb == 0)
                return false;
        }
        uint32_t numUp = 0;
        if (!mem.read(cb + 16, &numUp, 4))
            return false;
        for (uint32_t i = 0; i < std::min(numUp, kMaxQtxChannels); ++i) {
            uint32_t ch[7];
            if ((drained & (1u << i)) == 0 || !mem.read(cb + kQtxHeader + i * kQtxChannelSize, ch, sizeof ch))
                continue;
            const uint32_t size = ch[2];
            const uint32_t wr = ch[3];
            const uint32_t rd = ch[4];
            if (size == 0 || wr >= size || rd >= size)
                continue;
            const uint32_t used = wr >= rd ? wr - rd : size - rd + wr;
            if (used >= size / 2)
                return true;
        }
        return false;
    });
}

} // namespace sim
