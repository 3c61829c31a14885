#include "SimTestSupport.h"
#include "tests/TempFolder.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>
#include <unistd.h>

namespace simtest {

std::string writeScript(const std::string& name, const std::string& text)
{
    namespace fs = std::filesystem;
    const fs::path p = testtemp::folder() / name;
    std::ofstream(p) << text;
    return p.string();
}

int connectWith(const std::string& scriptText, const std::string& device)
{
    if (TARVOARM_EMU_SelectByUSBSN(static_cast<uint32_t>(TARVOARM_GetSN())) < 0)
        return -100;
    if (TARVOARM_OpenEx(nullptr, nullptr) != nullptr)
        return -101;
    char err[1024] = "";
    TARVOARM_ExecCommand("SetSkipInitECCRAMOnConnect = 1", nullptr, 0);
    const std::string dev = "device = " + device;
    if (TARVOARM_ExecCommand(dev.c_str(), err, sizeof err) != 0 || err[0] != '\0')
        return -102;
    const std::string script = "ScriptFile = " + writeScript("test.TarvoScript", scriptText);
    if (TARVOARM_ExecCommand(script.c_str(), err, sizeof err) != 0 || err[0] != '\0')
        return -103;
    TARVOARM_TIF_Select(TARVO_TIF_SWD);
    TARVOARM_SetSpeed(4000);
    return TARVOARM_Connect();
}

std::vector<uint8_t> readBsq(uint32_t recordSize, size_t want, int timeoutMs)
{
    std::vector<uint8_t> all;
    std::vector<uint8_t> buf(recordSize * 4096);
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (all.size() < want * recordSize && std::chrono::steady_clock::now() < end) {
        const int n = TARVO_BSQ_Read(buf.data(), static_cast<uint32_t>(buf.size()));
        if (n < 0)
            break;
        all.insert(all.end(), buf.begin(), buf.begin() + n);
        if (n == 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return all;
}

} // namespace simtest
