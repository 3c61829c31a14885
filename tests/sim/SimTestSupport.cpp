#include "SimTestSupport.h"
#include "tests/TempFolder.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
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

int connectWith(const std::string& scriptText, const std::string& device, const std::string& elf)
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
    if (!elf.empty() && TARVOARM_ExecCommand(("ELFFile = " + elf).c_str(), err, sizeof err) != 0)
        return -104;
    // Settings stay for the rest of the process: each test starts from the defaults.
    const std::string text = elf.empty() ? "DropWhenFull = 0\n" + scriptText : scriptText;
    const std::string script = "ScriptFile = " + writeScript("test.TarvoScript", text);
    if (!text.empty() && (TARVOARM_ExecCommand(script.c_str(), err, sizeof err) != 0 || err[0] != '\0'))
        return -103;
    TARVOARM_TIF_Select(TARVO_TIF_SWD);
    TARVOARM_SetSpeed(4000);
    return TARVOARM_Connect();
}

std::vector<uint8_t> readBsq(uint32_t recordSize, size_t want, int timeoutMs, uint32_t chunk)
{
    std::vector<uint8_t> all;
    std::vector<uint8_t> buf(chunk != 0 ? chunk : recordSize * 4096);
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

bool waitForTick(uint32_t tick)
{
    const TARVO_BSQ_BLOCK block{kTick, 4, 0, 0};
    if (TARVO_BSQ_Start(&block, 1, 1000, TARVO_BSQ_FLAG_TIMESTAMP) != 0)
        return false;
    bool reached = false;
    waitFor([&] {
        uint8_t buf[8 * 64];
        const int n = TARVO_BSQ_Read(buf, sizeof buf);
        for (int at = 0; at + 8 <= n; at += 8)
            reached = reached || get<uint32_t>(buf + at + 4) >= tick;
        return reached || n < 0;
    });
    TARVO_BSQ_Stop();
    return reached;
}

TARVO_QTX_CHANNEL_DESC firstUpChannel(int timeoutMs)
{
    TARVO_QTX_CHANNEL_DESC desc{};
    uint32_t up = TARVO_QTX_DIR_UP;
    int channels = TARVO_QTX_ERR_NOT_FOUND;
    waitFor([&] {
        channels = TARVO_QTXTERMINAL_Control(TARVO_QTX_CMD_GETNUMBUF, &up);
        return channels != TARVO_QTX_ERR_NOT_FOUND;
    }, timeoutMs);
    if (channels >= 1) {
        desc.Direction = TARVO_QTX_DIR_UP;
        EXPECT_EQ(TARVO_QTXTERMINAL_Control(TARVO_QTX_CMD_GETDESC, &desc), 0);
    }
    return desc;
}

void checkQtxRecords(const std::vector<uint8_t>& stream, bool everyTick)
{
    ASSERT_GE(stream.size(), 200u * 15);
    for (size_t at = 0; at + 15 <= stream.size(); at += 15) {
        const uint8_t* r = &stream[at];
        const uint32_t stamp = get<uint32_t>(r);
        ASSERT_EQ(stamp % 1000, 0u) << "record " << at / 15 << " is not framed";
        if (at > 0 && everyTick) {
            ASSERT_EQ(stamp - get<uint32_t>(r - 15), 1000u) << "a record was lost or doubled";
        } else if (at > 0) {
            ASSERT_GT(stamp, get<uint32_t>(r - 15));
        }
        const uint32_t t = stamp / 1000;
        EXPECT_NEAR(get<float>(r + 4), sineAt(t), 1e-3);
        EXPECT_NEAR(get<float>(r + 8), cosineAt(t), 1e-3);
        EXPECT_EQ(get<int16_t>(r + 12), sawtoothAt(t));
        EXPECT_EQ(r[14], stateAt(t));
    }
}

BsqStatus bsqStatus()
{
    char text[128] = "";
    BsqStatus s;
    unsigned long long queued = 0;
    unsigned long long dropped = 0;
    if (TARVOARM_ExecCommand("GetBsqStatus", text, sizeof text) == 0
        && std::sscanf(text, "queued=%llu dropped=%llu", &queued, &dropped) == 2) {
        s.queued = queued;
        s.dropped = dropped;
    }
    return s;
}

} // namespace simtest
