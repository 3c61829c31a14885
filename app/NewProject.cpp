#include "app/NewProject.h"

#include "base/Text.h"

#include <cmath>
#include <cstdlib>
#include <sstream>
#include <locale>

namespace newproject {

std::uint32_t interfaceCode(int index)
{
    static constexpr std::uint32_t codes[] = {kInterfaceJtag, kInterfaceSwd, kInterfaceFine};
    return index >= 0 && index < 3 ? codes[index] : codes[0];
}

int interfaceIndex(std::uint32_t code)
{
    for (int i = 0; i < 3; ++i)
        if (interfaceCode(i) == code)
            return i;
    return 1;
}

std::string refusal(const NewProjectChoices& c)
{
    if (c.qtx && c.existingSession)
        return kExistingSessionIsBsq;
    if (c.qtx)
        return c.device.empty() ? kQtxNeedsDevice : std::string();
    return c.elf.empty() ? kBsqNeedsElf : std::string();
}

namespace {

// The text as a C-locale number; 0 when it is none.
double number(const std::string& text)
{
    std::istringstream in(text);
    in.imbue(std::locale::classic());
    double value = 0;
    if (!(in >> value) || !std::isfinite(value))
        return 0;
    return value;
}

}  // namespace

std::uint32_t period(const std::string& periodText)
{
    const double value = number(periodText);
    if (value <= 0)
        return 0;
    return value >= 4294967295.0 ? 0xFFFFFFFFu : static_cast<std::uint32_t>(value);
}

std::string sampleRateLabel(const std::string& periodText)
{
    const double value = number(periodText);
    if (value == 0)
        return "us, Sample Rate: 0Hz";
    const long long rate = static_cast<long long>(1000000.0 / value);
    if (rate >= 1000)
        return "us, Sample Rate: " + std::to_string(rate / 1000) + "kHz";
    return "us, Sample Rate: " + std::to_string(rate) + "Hz";
}

ProjectSettings payload(const NewProjectChoices& c, ProjectSettings s)
{
    s.TargetDevice = text::truncated(c.device, kDeviceNameSize);
    s.ElfFile = text::truncated(c.elf, text::kPathSize);
    s.ScriptFile = text::truncated(c.script, text::kPathSize);
    s.IP = text::truncated(c.host, kHostSize);
    if (!c.serialText.empty())
        s.SerialNo = static_cast<std::uint32_t>(std::strtoul(c.serialText.c_str(), nullptr, 10));
    s.Connection = c.connection;
    s.ExistingSession = c.existingSession;
    s.TargetInterface = interfaceCode(c.interfaceIndex);
    s.InterfaceSpeed = static_cast<std::uint32_t>(c.speedKHz);
    s.IsQTXSession = c.qtx;
    s.SamplingPeriod = period(c.periodText);
    return s;
}

NewProjectChoices fromSettings(const ProjectSettings& s)
{
    NewProjectChoices c;
    c.connection = s.Connection == kConnectionTcpIp ? kConnectionTcpIp : kConnectionUsb;
    c.existingSession = s.ExistingSession || s.Connection == kConnectionExistingSession;
    c.serialGiven = s.SerialNo != 0;
    c.serialText = s.SerialNo ? std::to_string(s.SerialNo) : std::string();
    c.host = s.IP;
    c.device = s.TargetDevice;
    c.script = s.ScriptFile;
    c.interfaceIndex = interfaceIndex(s.TargetInterface);
    c.speedKHz = static_cast<std::int32_t>(s.InterfaceSpeed);
    c.qtx = s.IsQTXSession && !c.existingSession;
    c.periodText = std::to_string(s.SamplingPeriod);
    c.elf = s.ElfFile;
    return c;
}

}  // namespace newproject
