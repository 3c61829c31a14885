// Opening the probe, setting up the target, run control and closing.
#include "base/Log.h"
#include "base/Report.h"
#include "base/Text.h"
#include "probe/ProbeSampler.h"
#include "probe/TarvoLibrary.h"

#include <cstring>

namespace {

// Runs a command that answers with an error text; true when accepted,
// otherwise the library's text is the reason.
bool accepted(const std::string& command, std::string& reason)
{
    char error[1024] = {};
    tarvo::ExecCommand(command.c_str(), error, sizeof error);
    error[sizeof error - 1] = '\0';
    reason = error;
    return error[0] == '\0';
}

// A failed probe call: the message and the library's reason for its last failure.
void probeWarning(const std::string& message) { report::warning(report::withReason(message, tarvo::lastFailure())); }

}  // namespace

int ProbeSampler::openProbe(const ProjectSettings& s)
{
    m_existingSession = s.ExistingSession;
    if (tarvo::load(false)) {
        report::warning(report::withReason("Failed to load Tarvo library.", tarvo::loadFailure()));
        return -1;
    }
    if (s.Connection != kConnectionTcpIp) {
        if (s.SerialNo != 0 && tarvo::EMU_SelectByUSBSN(s.SerialNo) < 0) {
            probeWarning(text::format(256, "Failed to select Tarvo via USB ('%d').", static_cast<int>(s.SerialNo)));
            return -1;
        }
    } else if ((tarvo::SelectIP(s.IP.c_str(), 0) & 0xFF) != 0) {
        probeWarning(text::format(256, "Failed to select Tarvo via IP ('%s').", s.IP.c_str()));
        return -1;
    }
    if (const char* error = tarvo::OpenEx()) {
        report::warning(text::format(1024, "Failed to connect to Tarvo: %s", error));
        return -1;
    }
    return 0;
}

int ProbeSampler::setUpTarget(ProjectSettings& s)
{
    if (s.TargetInterface == kInterfaceJtag && s.JTAG_DRPre >= 0)
        tarvo::ConfigJTAG(s.JTAG_IRPre, s.JTAG_DRPre);
    tarvo::ExecCommand("SetSkipInitECCRAMOnConnect = 1", nullptr, 0);
    if (s.TargetDevice.empty() || text::equalsFolded(s.TargetDevice, "unspecified")) {
        const int index = tarvo::DEVICE_SelectDialog(nullptr);
        if (index == -1) {
            report::warning("User cancelled device selection.");
            return -1;
        }
        TARVO_DEVICE_INFO info;
        std::memset(&info, 0, sizeof info);
        info.SizeOfStruct = sizeof info;
        tarvo::DEVICE_GetInfo(index, &info);
        s.TargetDevice = text::truncated(info.sName ? info.sName : "", kDeviceNameSize);
    }
    const std::string device = text::format(1024, "device = %s", s.TargetDevice.c_str());
    std::string reason;
    if (!accepted(device, reason)) {
        report::warning(
            report::withReason(text::format(1024, "Failed to select target device '%s'.", s.TargetDevice.c_str()), reason));
        return -1;
    }
    // Tells the probe which program the target runs; a probe without use for
    // it answers with an error text, which changes nothing.
    if (!m_elfFile.empty())
        tarvo::ExecCommand(text::format(1024, "ELFFile = %s", m_elfFile.c_str()).c_str(), nullptr, 0);
    if (!s.ScriptFile.empty() && !accepted(text::format(1024, "ScriptFile = %s", s.ScriptFile.c_str()), reason)) {
        report::warning(
            report::withReason(text::format(1024, "Failed to select script file '%s'.", s.ScriptFile.c_str()), reason));
        return -1;
    }
    tarvo::TIF_Select(static_cast<int>(s.TargetInterface));
    tarvo::SetSpeed(s.InterfaceSpeed);
    if (!m_searchRanges.empty() && tarvo::ExecCommandShort(m_searchRanges.c_str()) != 0) {
        Log::instance().text("Wrong syntax for \"-QTXSearchRange\".\n");
        return -1;
    }
    if (tarvo::Connect() < 0) {
        probeWarning("Failed to establish connection to target.");
        return -1;
    }
    if (!s.IsQTXSession && tarvo::EMU_HasCapEx(TARVO_EMU_CAP_EX_BSQ)) {
        if (tarvo::GetDLLVersion() < TARVO_DLL_VERSION_BSQ_CAPS) {
            m_shortestPeriodUs = 10;
        } else {
            TARVO_BSQ_CAPS caps{};
            if (tarvo::BSQ_GetCaps(&caps) == 0 && caps.MaxFreq)
                m_shortestPeriodUs = 1000000 / caps.MaxFreq;
        }
    }
    m_samplingActive = true;
    return 0;
}

// Asked of the probe, not taken from memory: only the BSQ start touches the
// run state, and a QTX start must still learn whether the target runs.
bool ProbeSampler::targetRunning()
{
    if (m_samplingActive && tarvo::loaded()) {
        const int halted = tarvo::IsHalted();
        if (halted >= 0)
            m_targetRunning = (halted & 0xFF) == 0;
    }
    return m_targetRunning;
}

// Run control touches the target only while sampling is active and never in
// a session that another tool owns.
int ProbeSampler::halt()
{
    if (!m_samplingActive || m_existingSession)
        return -1;
    const int r = tarvo::ArmHalt();
    m_targetRunning = false;
    return r;
}

int ProbeSampler::go()
{
    if (!m_samplingActive || m_existingSession)
        return -1;
    tarvo::ArmGo();
    m_targetRunning = true;
    return 0;
}

int ProbeSampler::reset()
{
    if (!m_samplingActive || m_existingSession)
        return -1;
    const int r = tarvo::ArmReset();
    m_targetRunning = false;
    return r;
}

bool ProbeSampler::probeConnected() { return tarvo::loaded() && tarvo::IsOpen() && tarvo::IsConnected(); }

void ProbeSampler::close()
{
    if (!m_existingSession && tarvo::loaded())
        tarvo::Close();
    m_samplingActive = false;
    m_bsqRunning = false;
    m_qtxRunning = false;
}

std::string ProbeSampler::versionLine()
{
    if (tarvo::load(false))
        return {};
    const int v = tarvo::GetDLLVersion();
    const char* date = tarvo::GetCompileDateTime();
    const int rev = v % 100;
    const std::string suffix = rev > 0 && rev <= 26 ? std::string(1, static_cast<char>('a' + rev - 1)) : std::string();
    return text::format(256, "TarvoARM.dll V%d.%.2d%s (DLL compiled %s)", v / 10000, (v / 100) % 100, suffix.c_str(),
                        date ? date : "");
}

int ProbeSampler::execCommand(const std::string& command)
{
    if (tarvo::load(false))
        return -1;
    return tarvo::ExecCommandShort(command.c_str());
}

int ProbeSampler::stopSource(const ProjectSettings& s)
{
    int result = 0;
    if (s.IsQTXSession) {
        result = tarvo::QTX_Control(TARVO_QTX_CMD_STOP, nullptr);
        m_qtxRunning = false;
    } else if (!s.ExistingSession && m_bsqRunning) {
        result = tarvo::BSQ_Stop();
    }
    // Stopping leaves the target halted, so the values on screen stay those of the target.
    if (tarvo::IsOpen() && tarvo::IsConnected())
        tarvo::ArmHalt();
    m_blocks.clear();
    m_targetRunning = false;
    m_bsqRunning = false;
    return result;
}
