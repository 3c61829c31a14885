// The probe: session state, command strings, device list, BSQ and QTX on top
// of the simulated target ("USB") or of a GDB server ("TCP/IP", gdb/). One instance per process; every public
// function is safe to call from any thread.
#pragma once

#include "probe/TarvoApi.h"
#include "sim/Qtx.h"
#include "sim/target/GdbServer.h"
#include "sim/Script.h"
#include "sim/target/Target.h"
#include "sim/gdb/Remote.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace sim {

class Probe {
public:
    static constexpr uint32_t kDefaultSerial = 123456;
    static constexpr int kVersion = 51200;
    static constexpr uint32_t kMaxFreqHz = 100'000;
    static constexpr uint32_t kMaxBlocks = 64;
    static constexpr uint32_t kMaxRecordSize = 1024;
    static constexpr uint32_t kFifoBytes = 4 * 1024 * 1024;
    static constexpr uint32_t kMaxQtxChannels = 16;
    static constexpr uint32_t kGdbSearchSize = 64 * 1024; // default QTX search behind a GDB server

    static Probe& instance();

    const char* open(TARVO_LOG* log = nullptr);
    void close();
    int selectBySerial(uint32_t serial);
    int selectIp(const char* host);
    void configJtag(int irPre, int drPre);
    int execCommand(const char* command, char* error, int errorSize);
    int selectInterface(int tif);
    void setSpeed(uint32_t kHz);
    int connect();
    int selectDialog();
    int deviceInfo(int index, TARVO_DEVICE_INFO* info);
    int hasCapEx(int cap);
    int serialNumber();

    void go();
    int halt();
    int reset();
    int isOpen();
    int isConnected();
    int isHalted();

    int qtxControl(uint32_t command, void* arg);
    int qtxRead(uint32_t channel, char* dst, uint32_t max);

    int bsqCaps(TARVO_BSQ_CAPS* caps);
    int bsqStart(const TARVO_BSQ_BLOCK* blocks, uint32_t count, uint32_t periodUs, uint32_t flags);
    int bsqRead(void* dst, uint32_t size);
    int bsqStop();


private:
    Probe();
    std::string runCommand(const std::string& command);
    std::string bsqStatus() const; // "queued=N dropped=M": records waiting and dropped since the start
    std::string targetStatus() const; // "peripheral_pages=N peripheral_accesses=M"
    void logLine(const std::string& text) const;
    std::string resolveScript(const std::string& path) const;
    std::string firmwarePath() const;
    bool readFails(); // fault injection: FailReadAfter
    int remoteResult(int rc);
    bool findControlBlock();
    std::vector<std::pair<uint32_t, uint32_t>> searchRanges() const;
    qtx::Read targetReader() const;
    void closeLocked();
    void holdForDrainedChannels();

    std::mutex m_mutex;
    TARVO_LOG* m_log = nullptr; // the program's log, where it gave one
    std::string m_libraryDir;
    Script m_script;                 // settings from every script loaded so far
    std::string m_programElf;        // the program's ELF file ("ELFFile = ..."), for this connection
    bool m_scriptNamesFirmware = false;  // a script of this connection named the firmware
    std::string m_openError;
    bool m_open = false;
    bool m_selectionFailed = false;
    int m_device = -1;
    int m_tif = TARVO_TIF_SWD;
    uint32_t m_speedKHz = 4000;
    std::string m_lastError;
    std::unique_ptr<Target> m_target;
    std::unique_ptr<GdbServer> m_gdbServer; // serves m_target to debuggers where the script asks
    // "TCP/IP": a GDB server at this address instead of the simulated target.
    bool m_viaGdb = false;
    std::string m_gdbHost;
    uint16_t m_gdbPort = gdb::Remote::kDefaultPort;
    std::unique_ptr<gdb::Remote> m_remote;
    std::string m_remoteDevice;
    uint32_t m_readsOk = 0;
    bool m_bsqRunning = false;
    bool m_qtxStarted = false;
    uint32_t m_cbAddress = 0; // 0 = control block not found
    uint32_t m_drainedChannels = 0; // bit per up-channel the program reads
    std::vector<std::pair<uint32_t, uint32_t>> m_searchRanges; // address, size
};

} // namespace sim
