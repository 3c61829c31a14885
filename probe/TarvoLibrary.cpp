#include "probe/TarvoLibrary.h"

#include "base/Bridge.h"
#include "base/Report.h"

#include <QSettings>

#include <atomic>
#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <mutex>

namespace tarvo {
namespace {

std::atomic<void*> g_module{nullptr};
std::string g_applicationPath;
std::mutex g_loadMutex;

void showBox(const std::string& text)
{
    MessageBoxRequest r;
    r.caption = "Tarvo Error";
    r.text = text;
    r.button0 = "O.K.";
    r.icon = kIconWarning;
    report::ask(r);
}

std::string beside(const std::string& modulePath, const std::string& file)
{
    return (std::filesystem::path(modulePath).parent_path() / file).string();
}

std::string g_loadFailure;  // guarded by g_loadMutex

void* tryLoad(const std::string& path, std::string& lastTried)
{
    lastTried = path;
    void* module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!module) {
        const char* why = dlerror();
        g_loadFailure += (g_loadFailure.empty() ? "" : "\n") + std::string(why ? why : path + ": not loaded");
    }
    return module;
}

std::string installPath()
{
    for (const char* app : {"Tarvo", "Prograv"}) {
        QSettings s(QSettings::NativeFormat, QSettings::UserScope, "Norvex", app);
        const QString p = s.value("InstallPath").toString();
        if (!p.isEmpty())
            return p.left(259).toStdString();
    }
    return {};
}

// Resolves an export by exact name; a missing export shows its box each time.
template <typename Fn>
Fn* resolve(std::atomic<Fn*>& cache, const char* name)
{
    if (Fn* f = cache.load())
        return f;
    if (load(true))
        return nullptr;
    auto* f = reinterpret_cast<Fn*>(dlsym(g_module.load(), name));
    if (!f) {
        showBox(std::string("DLL function ") + name + "(...) not found !");
        return nullptr;
    }
    cache = f;
    return f;
}

#define TARVO_CALL(name, fallback, ...)                       \
    static std::atomic<name##_fn*> cache{nullptr};            \
    auto* fn = resolve<name##_fn>(cache, #name);              \
    if (!fn)                                                  \
        return fallback;                                      \
    return fn(__VA_ARGS__)

#define TARVO_CALL_VOID(name, ...)                            \
    static std::atomic<name##_fn*> cache{nullptr};            \
    if (auto* fn = resolve<name##_fn>(cache, #name))          \
        fn(__VA_ARGS__)

}  // namespace

void setApplicationPath(const std::string& path)
{
    std::lock_guard lock(g_loadMutex);
    g_applicationPath = path;
}

bool loaded() { return g_module.load() != nullptr; }

bool load(bool errorBox)
{
    if (g_module.load())
        return false;
    std::lock_guard lock(g_loadMutex);
    if (g_module.load())
        return false;
    std::string lastTried;
    g_loadFailure.clear();
    void* module = nullptr;
    Dl_info info{};
    // For code inside the program the module's name is the program's argv[0]:
    // a bare name was found on PATH, so it says nothing of the folder (the
    // application path, next, does).
    if (dladdr(reinterpret_cast<void*>(&load), &info) && info.dli_fname && std::strchr(info.dli_fname, '/')) {
        // Links resolved: an installed program is reached through one in bin/.
        std::error_code ec;
        const std::filesystem::path given = std::filesystem::absolute(info.dli_fname, ec);
        std::filesystem::path self = std::filesystem::weakly_canonical(given, ec);
        if (ec)
            self = given;
        module = tryLoad(beside(self.string(), kLibraryFile), lastTried);
    }
    if (!module && !g_applicationPath.empty())
        module = tryLoad(beside(g_applicationPath, kLibraryFile), lastTried);
    if (!module) {
        const std::string dir = installPath();
        if (!dir.empty()) {
            module = tryLoad((std::filesystem::path(dir) / kLibraryFile).string(), lastTried);
            if (!module)
                module = tryLoad((std::filesystem::path(dir) / "bin_x64" / kLibraryFile).string(), lastTried);
        }
    }
    if (!module) {
        if (errorBox)
            showBox("Target DLL " + lastTried + " not found !");
        return true;
    }
    g_module = module;
    return false;
}

std::string loadFailure()
{
    std::lock_guard lock(g_loadMutex);
    return g_loadFailure;
}

std::string lastFailure()
{
    if (!loaded())
        return {};
    char answer[1024] = {};
    if (ExecCommand("GetLastError", answer, sizeof answer) != 0)
        return {};
    answer[sizeof answer - 1] = '\0';
    return answer;
}

void unloadForTests()
{
    std::lock_guard lock(g_loadMutex);
    g_module = nullptr;  // the library stays mapped; the next load finds it again
}

const char* OpenEx() { TARVO_CALL(TARVOARM_OpenEx, nullptr, nullptr, nullptr); }
void Close() { TARVO_CALL_VOID(TARVOARM_Close); }
int EMU_SelectByUSBSN(std::uint32_t serialNo) { TARVO_CALL(TARVOARM_EMU_SelectByUSBSN, 0, serialNo); }
int SelectIP(const char* host, int port) { TARVO_CALL(TARVOARM_SelectIP, 0, host, port); }
void ConfigJTAG(int irPre, int drPre) { TARVO_CALL_VOID(TARVOARM_ConfigJTAG, irPre, drPre); }
int ExecCommand(const char* command, char* error, int errorSize)
{
    TARVO_CALL(TARVOARM_ExecCommand, 0, command, error, errorSize);
}
int TIF_Select(int interface) { TARVO_CALL(TARVOARM_TIF_Select, 0, interface); }
void SetSpeed(std::uint32_t kHz) { TARVO_CALL_VOID(TARVOARM_SetSpeed, kHz); }
int Connect() { TARVO_CALL(TARVOARM_Connect, 0); }
int DEVICE_SelectDialog(void* parent) { TARVO_CALL(TARVOARM_DEVICE_SelectDialog, 0, parent, 0, nullptr); }
int DEVICE_GetInfo(int index, TARVO_DEVICE_INFO* info) { TARVO_CALL(TARVOARM_DEVICE_GetInfo, 0, index, info); }
int EMU_HasCapEx(int cap) { TARVO_CALL(TARVOARM_EMU_HasCapEx, 0, cap); }
int GetDLLVersion() { TARVO_CALL(TARVOARM_GetDLLVersion, 0); }
int GetSN() { TARVO_CALL(TARVOARM_GetSN, 0); }
const char* GetCompileDateTime() { TARVO_CALL(TARVOARM_GetCompileDateTime, nullptr); }
void ArmGo() { TARVO_CALL_VOID(TARVOARM_Go); }
int ArmHalt() { TARVO_CALL(TARVOARM_Halt, 0); }
int ArmReset() { TARVO_CALL(TARVOARM_Reset, 0); }
int IsOpen() { TARVO_CALL(TARVOARM_IsOpen, 0); }
int IsConnected() { TARVO_CALL(TARVOARM_IsConnected, 0); }
int IsHalted() { TARVO_CALL(TARVOARM_IsHalted, 0); }
void Go() { TARVO_CALL_VOID(TARVO_Go); }
int TargetIsHalted() { TARVO_CALL(TARVO_IsHalted, 0); }
int ExecCommandShort(const char* command) { TARVO_CALL(TARVO_ExecCommand, 0, command, nullptr, 0); }
int QTX_Control(std::uint32_t command, void* argument) { TARVO_CALL(TARVO_QTXTERMINAL_Control, 0, command, argument); }
int QTX_Read(std::uint32_t channel, char* buffer, std::uint32_t size)
{
    TARVO_CALL(TARVO_QTXTERMINAL_Read, 0, channel, buffer, size);
}
int BSQ_GetCaps(TARVO_BSQ_CAPS* caps) { TARVO_CALL(TARVO_BSQ_GetCaps, 0, caps); }
int BSQ_Start(const TARVO_BSQ_BLOCK* blocks, std::uint32_t count, std::uint32_t periodUs, std::uint32_t flags)
{
    TARVO_CALL(TARVO_BSQ_Start, 0, blocks, count, periodUs, flags);
}
int BSQ_Read(void* buffer, std::uint32_t size) { TARVO_CALL(TARVO_BSQ_Read, 0, buffer, size); }
int BSQ_Stop() { TARVO_CALL(TARVO_BSQ_Stop, 0); }

}  // namespace tarvo
