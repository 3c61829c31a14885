// Run-time binding to the Tarvo probe library: finds and loads the library,
// resolves each export by name on first use, and passes results through.
// A wrapper whose export cannot be resolved returns 0 (or nothing).
#pragma once

#include "probe/TarvoApi.h"

#include <string>

namespace tarvo {

#if defined(_WIN32)
inline constexpr const char* kLibraryFile = "Tarvo_x64.dll";
#else
inline constexpr const char* kLibraryFile = "libTarvo_x64.so";
#endif

// Loads the library: next to this code's own module, next to the
// application, then in the "InstallPath" of the Tarvo or Prograv settings.
// Returns false on success, true on failure; with `errorBox` a failure shows
// "Target DLL <path> not found !".
bool load(bool errorBox);
// Why the last load found no library: each path tried with the loader's answer.
std::string loadFailure();
// The library's reason for its last failed call, asked with the command
// "GetLastError" (answered in the error buffer); empty when it has none or
// does not know the command.
std::string lastFailure();
bool loaded();
// The application's executable path (the second place to look).
void setApplicationPath(const std::string& path);
// Test hook: forget the loaded library and every resolved export.
void unloadForTests();

const char* OpenEx();
void Close();
int EMU_SelectByUSBSN(std::uint32_t serialNo);
int SelectIP(const char* host, int port);
void ConfigJTAG(int irPre, int drPre);
int ExecCommand(const char* command, char* error, int errorSize);
int TIF_Select(int interface);
void SetSpeed(std::uint32_t kHz);
int Connect();
int DEVICE_SelectDialog(void* parent);
int DEVICE_GetInfo(int index, TARVO_DEVICE_INFO* info);
int EMU_HasCapEx(int cap);
int GetDLLVersion();
int GetSN();
const char* GetCompileDateTime();
void ArmGo();
int ArmHalt();
int ArmReset();
int IsOpen();
int IsConnected();
int IsHalted();
void Go();
int TargetIsHalted();
int ExecCommandShort(const char* command);
int QTX_Control(std::uint32_t command, void* argument);
int QTX_Read(std::uint32_t channel, char* buffer, std::uint32_t size);
int BSQ_GetCaps(TARVO_BSQ_CAPS* caps);
int BSQ_Start(const TARVO_BSQ_BLOCK* blocks, std::uint32_t count, std::uint32_t periodUs, std::uint32_t flags);
int BSQ_Read(void* buffer, std::uint32_t size);
int BSQ_Stop();

}  // namespace tarvo
