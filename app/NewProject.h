// The choices of the new project dialog, the checks its "OK" makes and the
// settings payload it fills. Shared by the dialog, the options dialog and
// `plotvik-cli new`, so that all three refuse and write the same.
#pragma once

#include "base/ProjectSettings.h"

#include <cstdint>
#include <string>

struct NewProjectChoices {
    std::uint32_t connection = kConnectionUsb;  // kConnectionUsb or kConnectionTcpIp
    bool existingSession = false;
    bool serialGiven = false;  // the "Serial No." check box
    std::string serialText;
    std::string host;
    std::string device;
    std::string script;
    int interfaceIndex = 1;  // row of the interface combo box: JTAG, SWD, FINE
    std::int32_t speedKHz = 4000;
    bool qtx = false;
    std::string periodText = "100";  // "Sample every", microseconds
    std::string elf;
};

namespace newproject {

inline constexpr const char* kQtxNeedsDevice = "In QTX mode specifying the target device is mandatory.";
inline constexpr const char* kBsqNeedsElf = "No ELF file selected.";
inline constexpr const char* kExistingSessionIsBsq = "An existing session samples with BSQ only.";

// Rows of the interface combo box and their codes; an index outside the
// table gives the first row's code.
inline constexpr const char* kInterfaceNames[] = {"JTAG", "SWD", "FINE"};
std::uint32_t interfaceCode(int index);
// The row showing `code`, SWD for unknown codes.
int interfaceIndex(std::uint32_t code);

// The reason "OK" is refused, or empty when the choices are accepted.
std::string refusal(const NewProjectChoices& c);

// The "Sample every" text as the period stored (its integer part) and the
// label beside it: "us, Sample Rate: 10kHz".
std::uint32_t period(const std::string& periodText);
std::string sampleRateLabel(const std::string& periodText);

// The payload: `base` with the dialog's fields written over it (a new
// project starts from an empty record, the options from the project's).
ProjectSettings payload(const NewProjectChoices& c, ProjectSettings base = {});
// The choices that show `s` (the options dialog).
NewProjectChoices fromSettings(const ProjectSettings& s);

}  // namespace newproject
