// The device table's texts and the filter rule.
#include "probe/DeviceList.h"
#include "probe/TarvoApi.h"

#include <gtest/gtest.h>

TEST(DeviceList, SizeTexts)
{
    struct Case {
        std::int64_t bytes;
        const char* text;
    };
    const Case cases[] = {
        {0, "0 Bytes"},           {1, "1 Byte"},           {-1, "-1 Byte"},          {1000, "1000 Bytes"},
        {1536 * 1024, "1.5 MB"},  {1048576, "1 MB"},       {512 * 1024, "512 KB"},   {1536, "1.5 KB"},
        {512, "512 Bytes"},       {3LL << 29, "1.5 GB"},   {1LL << 30, "1 GB"},      {(1LL << 20) + 1024, "1025 KB"},
        {-2048, "-2 KB"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(devicelist::sizeText(c.bytes), c.text) << c.bytes;
}

TEST(DeviceList, CoreTextsAndFilters)
{
    const std::uint32_t cores[] = {TARVO_CORE_CORTEX_M7 | 1, TARVO_CORE_CORTEX_M4 | 2, 0};
    EXPECT_EQ(devicelist::coreText(cores, 3), "Cortex-M7 Rev.1, Cortex-M4 Rev.2");
    const std::uint32_t odd[] = {0x1234500};
    EXPECT_EQ(devicelist::coreText(odd, 1), "0x01234500");

    const DeviceEntry e{.name = "STM32F407VG", .manufacturer = "STMicroelectronics", .cores = "Cortex-M4 Rev.1",
                        .numCores = 1, .flashSize = 1 << 20};
    EXPECT_TRUE(devicelist::matches("STM32F407VG", "f407"));
    EXPECT_TRUE(devicelist::anyColumnMatches(e, "1 mb"));
    EXPECT_TRUE(devicelist::anyColumnMatches(e, "m4 rev"));
    EXPECT_FALSE(devicelist::anyColumnMatches(e, "m7"));
}
