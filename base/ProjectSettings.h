// The project settings record shared by the controller, the probe connection,
// the samplers, the views and the project file.
#pragma once

#include <cstdint>
#include <string>

struct Node;

// Connection kinds.
enum : std::uint32_t { kConnectionUsb = 1, kConnectionTcpIp = 2, kConnectionExistingSession = 4 };
// Target interfaces.
enum : std::uint32_t { kInterfaceJtag = 0, kInterfaceSwd = 1, kInterfaceFine = 3 };

struct ProjectSettings {
    std::string TargetDevice;  // 128
    std::string ElfFile;       // 260
    std::string DataFile;      // 260
    std::string RawFile;       // 260
    std::string ScriptFile;    // 260
    std::string IP;            // 128
    std::uint32_t SerialNo = 0;
    std::uint32_t TargetInterface = 0;
    std::uint32_t InterfaceSpeed = 0;
    bool IsQTXSession = false;
    bool IsQTXWithTimeStamp = false;
    std::uint32_t SamplingPeriod = 0;
    std::uint32_t Connection = 0;
    std::int32_t JTAG_DRPre = 0;  // negative skips the scan-chain set-up
    std::int32_t JTAG_IRPre = 0;
    bool ExistingSession = false;
    bool ShowGraph = false;
    bool ShowWatch = false;
    std::uint32_t TimeResolutionUs = 0;
    Node* TriggerSymbol = nullptr;  // not owned
    double TriggerLevel = 0.0;
    bool TriggerOn = false;
    bool TriggerAuto = false;
    bool TriggerRise = false;
    bool TriggerFall = false;
    bool TriggerFired = false;

    friend bool operator==(const ProjectSettings&, const ProjectSettings&) = default;
};

// Field sizes (terminator included) the texts are cut to.
inline constexpr std::size_t kDeviceNameSize = 128;
inline constexpr std::size_t kHostSize = 128;

// The owner of the one settings record the threads share (the open project):
// readers take a copy, writers hand back a whole record.
class SharedSettings {
public:
    virtual ProjectSettings settings() const = 0;
    // Copies `s` over the current record when they differ; returns true then.
    virtual bool apply(const ProjectSettings& s) = 0;

protected:
    ~SharedSettings() = default;
};
