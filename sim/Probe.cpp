#include "sim/Probe.h"

#include "sim/Devices.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <sstream>

namespace sim {
namespace {

namespace fs = std::filesystem;

constexpr char kQtxId[16] = "PLOTVIK QTX CB";
constexpr uint32_t kQtxHeader = 24;      // id, num_up, num_down
constexpr uint32_t kQtxChannelSize = 28; // name, buffer, size, wr_off, rd_off, flags, dropped

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

const char* Probe::open()
{
    std::lock_guard lk(m_mutex);
    if (m_selectionFailed) {
        m_openError = "No Tarvo found with the selected serial number or host.";
        return m_openError.c_str();
    }
    m_open = true;
    return nullptr;
}

void Probe::close()
{
    std::lock_guard lk(m_mutex);
    closeLocked();
}

void Probe::closeLocked()
{
    m_target.reset();
    m_bsqRunning = false;
    m_qtxStarted = false;
    m_cbAddress = 0;
    m_open = false;
    m_device = -1;
    m_searchRanges.clear();
}

int Probe::selectBySerial(uint32_t serial)
{
    std::lock_guard lk(m_mutex);
    const uint32_t own = m_script.serialNumber.value_or(kDefaultSerial);
    m_selectionFailed = serial != own;
    if (m_selectionFailed)
        m_lastError = "No probe with serial number " + std::to_string(serial) + " is attached (the simulated one has " +
                      std::to_string(own) + ").";
    return m_selectionFailed ? -1 : 0;
}

int Probe::selectIp(const char* host)
{
    std::lock_guard lk(m_mutex);
    const std::string h = host != nullptr ? lower(trim(host)) : std::string();
    // The simulated probe listens on the local host only.
    m_selectionFailed = !(h == "localhost" || h == "127.0.0.1" || h == "::1");
    if (m_selectionFailed)
        m_lastError = "No probe answers at " + h + " (the simulated one listens on localhost only).";
    return m_selectionFailed ? 1 : 0;
}

void Probe::configJtag(int, int)
{
    // A single simulated device on the scan chain: nothing to adjust.
}

int Probe::execCommand(const char* command, char* error, int errorSize)
{
    std::string err;
    {
        std::lock_guard lk(m_mutex);
        // The one command that answers with a text rather than an error: the
        // reason of the last failed call, so the program can say why.
        if (command != nullptr && lower(trim(command)) == "getlasterror") {
            if (error != nullptr && errorSize > 0)
                std::snprintf(error, static_cast<size_t>(errorSize), "%s", m_lastError.c_str());
            return 0;
        }
        err = command != nullptr ? runCommand(command) : "No command given.";
    }
    if (error != nullptr && errorSize > 0)
        std::snprintf(error, static_cast<size_t>(errorSize), "%s", err.c_str());
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
    if (key == "device") {
        const int index = findDevice(value);
        if (index < 0)
            return "Unknown device \"" + value + "\".";
        m_device = index;
        return {};
    }
    if (key == "scriptfile") {
        const std::string path = resolveScript(value);
        Script s;
        if (auto err = loadScript(path, s); !err.empty())
            return "Failed to load script file: " + err + ".";
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
    if (m_script.firmware) {
        if (exists(*m_script.firmware))
            return *m_script.firmware;
        // A script from the source tree names firmware that the build puts next to the library.
        const std::string beside = (fs::path(m_libraryDir) / fs::path(*m_script.firmware).filename()).string();
        return exists(beside) ? beside : *m_script.firmware;
    }
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
    auto target = std::make_unique<Target>(cfg, std::move(image));
    if (auto err = target->start(); !err.empty()) {
        m_lastError = err;
        return -1;
    }
    m_target = std::move(target);
    m_readsOk = 0;
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
    if (m_target)
        m_target->go();
}

int Probe::halt()
{
    std::lock_guard lk(m_mutex);
    if (!m_target)
        return -1;
    m_target->halt();
    return 0;
}

int Probe::reset()
{
    std::lock_guard lk(m_mutex);
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
    return m_target ? 1 : 0;
}

int Probe::isHalted()
{
    std::lock_guard lk(m_mutex);
    if (!m_target)
        return -1;
    return m_target->isHalted() ? 1 : 0;
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
    if (m_device >= 0 && !devices()[static_cast<size_t>(m_device)].hasBsq)
        return -1;
    *caps = {};
    caps->SizeOfStruct = sizeof(TARVO_BSQ_CAPS);
    caps->MaxFreq = kMaxFreqHz;
    caps->MaxNumBlocks = kMaxBlocks;
    caps->MaxRecordSize = kMaxRecordSize;
    caps->FifoSize = kFifoBytes;
    return 0;
}

int Probe::bsqStart(const TARVO_BSQ_BLOCK* blocks, uint32_t count, uint32_t periodUs, uint32_t)
{
    std::lock_guard lk(m_mutex);
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
        if (blocks[i].NumBytes == 0 || !Target::isMapped(blocks[i].Addr, blocks[i].NumBytes))
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
    if (!m_target || !m_bsqRunning || dst == nullptr)
        return -1;
    if (readFails())
        return -1;
    return static_cast<int>(m_target->bsqRead(static_cast<uint8_t*>(dst), std::min<uint32_t>(size, 0x7FFFFFFF)));
}

int Probe::bsqStop()
{
    std::lock_guard lk(m_mutex);
    if (!m_target)
        return -1;
    m_target->bsqStop();
    m_bsqRunning = false;
    return 0;
}

uint64_t Probe::bsqDropped()
{
    std::lock_guard lk(m_mutex);
    return m_target ? m_target->bsqDropped() : 0;
}

bool Probe::findControlBlock()
{
    std::vector<std::pair<uint32_t, uint32_t>> ranges = m_searchRanges;
    if (ranges.empty())
        ranges.emplace_back(Target::kRamBase, Target::kRamSize);
    std::vector<uint8_t> mem;
    for (const auto& [address, size] : ranges) {
        if (!Target::isMapped(address, size))
            continue;
        mem.resize(size);
        if (!m_target->read(address, mem.data(), size))
            continue;
        for (uint32_t off = 0; off + kQtxHeader <= size; off += 4) { // the block is word-aligned
            if (std::memcmp(mem.data() + off, kQtxId, sizeof kQtxId) != 0)
                continue;
            uint32_t numUp = 0;
            uint32_t numDown = 0;
            std::memcpy(&numUp, mem.data() + off + 16, 4);
            std::memcpy(&numDown, mem.data() + off + 20, 4);
            if (numUp > kMaxQtxChannels || numDown > kMaxQtxChannels)
                continue;
            m_cbAddress = address + off;
            return true;
        }
    }
    return false;
}

bool Probe::readChannel(uint32_t index, uint32_t (&words)[7])
{
    uint32_t numUp = 0;
    if (!m_target->read(m_cbAddress + 16, &numUp, 4) || index >= std::min(numUp, kMaxQtxChannels))
        return false;
    return m_target->read(m_cbAddress + kQtxHeader + index * kQtxChannelSize, words, sizeof words);
}

int Probe::qtxControl(uint32_t command, void* arg)
{
    std::lock_guard lk(m_mutex);
    switch (command) {
    case TARVO_QTX_CMD_START:
        if (!m_target)
            return -1;
        m_qtxStarted = true;
        m_cbAddress = 0;
        return 0;
    case TARVO_QTX_CMD_STOP:
        m_qtxStarted = false;
        return 0;
    case TARVO_QTX_CMD_GETNUMBUF: {
        if (!m_target || !m_qtxStarted)
            return -1;
        if (m_cbAddress == 0 && !findControlBlock())
            return TARVO_QTX_ERR_NOT_FOUND;
        const uint32_t direction = arg != nullptr ? *static_cast<const uint32_t*>(arg) : TARVO_QTX_DIR_UP;
        uint32_t n = 0;
        if (direction > TARVO_QTX_DIR_DOWN
            || !m_target->read(m_cbAddress + (direction == TARVO_QTX_DIR_UP ? 16 : 20), &n, 4))
            return -1;
        return static_cast<int>(std::min(n, kMaxQtxChannels));
    }
    case TARVO_QTX_CMD_GETDESC: {
        if (!m_target || !m_qtxStarted || arg == nullptr)
            return -1;
        if (m_cbAddress == 0 && !findControlBlock())
            return TARVO_QTX_ERR_NOT_FOUND;
        auto* desc = static_cast<TARVO_QTX_CHANNEL_DESC*>(arg);
        uint32_t ch[7];
        if (desc->Direction != TARVO_QTX_DIR_UP || desc->BufferIndex < 0
            || !readChannel(static_cast<uint32_t>(desc->BufferIndex), ch))
            return -1;
        std::memset(desc->acName, 0, sizeof desc->acName);
        if (ch[0] != 0) {
            char name[sizeof desc->acName] = {};
            for (uint32_t i = 0; i + 1 < sizeof name; ++i) {
                if (!m_target->read(ch[0] + i, &name[i], 1) || name[i] == '\0')
                    break;
            }
            std::memcpy(desc->acName, name, sizeof name);
            desc->acName[sizeof desc->acName - 1] = '\0';
        }
        desc->SizeOfBuffer = ch[2];
        desc->Flags = ch[5];
        return 0;
    }
    default:
        return -1;
    }
}

int Probe::qtxRead(uint32_t channel, char* dst, uint32_t max)
{
    std::lock_guard lk(m_mutex);
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
        uint32_t numUp = 0;
        uint32_t ch[7];
        const uint32_t at = cb + kQtxHeader + channel * kQtxChannelSize;
        if (!mem.read(cb + 16, &numUp, 4) || channel >= std::min(numUp, kMaxQtxChannels) || !mem.read(at, ch, sizeof ch))
            return false;
        const uint32_t buffer = ch[1];
        const uint32_t size = ch[2];
        const uint32_t wr = ch[3];
        const uint32_t rd = ch[4];
        if (size == 0) {
            result = 0; // channel being set up
            return true;
        }
        if (wr >= size || rd >= size || !Target::isMapped(buffer, size))
            return false;
        const uint32_t avail = wr >= rd ? wr - rd : size - rd + wr;
        const uint32_t n = std::min({avail, max, uint32_t(0x7FFFFFFF)});
        const uint32_t first = std::min(n, size - rd);
        if (!mem.read(buffer + rd, dst, first) || !mem.read(buffer, dst + first, n - first))
            return false;
        const uint32_t next = (rd + n) % size;
        if (!mem.write(at + 16, &next, 4))
            return false;
        result = static_cast<int>(n);
        return true;
    });
    return result;
}

} // namespace sim
