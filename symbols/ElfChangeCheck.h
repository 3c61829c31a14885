// Noticing that the project's ELF file was rebuilt, and asking whether to
// re-parse it keeping or clearing the selection.
#pragma once

#include <filesystem>

class Controller;

// The "Check modified ELF" job body. Posts a matching re-parse when the ELF
// file's last-write time differs from the one of the last parse. Always
// clears the controller's pending-check mark.
int CheckElfModification(Controller& controller);

// True when two last-write times differ at millisecond precision.
bool ElfTimeDiffers(std::filesystem::file_time_type a, std::filesystem::file_time_type b);
