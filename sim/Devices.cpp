#include "sim/Devices.h"

#include "probe/TarvoApi.h"

#include <cctype>
#include <deque>
#include <initializer_list>
#include <string>
#include <vector>

namespace sim {
namespace {

constexpr uint32_t KiB = 1024;
constexpr uint32_t MiB = 1024 * 1024;
constexpr uint32_t M0 = TARVO_CORE_CORTEX_M0 | 1;
constexpr uint32_t M0P = TARVO_CORE_CORTEX_M0PLUS | 1;
constexpr uint32_t M3 = TARVO_CORE_CORTEX_M3 | 2;
constexpr uint32_t M4 = TARVO_CORE_CORTEX_M4 | 1;
constexpr uint32_t M7 = TARVO_CORE_CORTEX_M7 | 1;
constexpr uint32_t M23 = TARVO_CORE_CORTEX_M23 | 0;
constexpr uint32_t M33 = TARVO_CORE_CORTEX_M33 | 0;
constexpr uint32_t M55 = TARVO_CORE_CORTEX_M55 | 1;
constexpr uint32_t A7 = TARVO_CORE_CORTEX_A7 | 5;
constexpr uint32_t R5 = TARVO_CORE_CORTEX_R5 | 3;

constexpr uint32_t kFlash0 = 0x00000000;
constexpr uint32_t kFlashSt = 0x08000000;
constexpr uint32_t kRam = 0x20000000;

// The generic cores and the simulator's own parts. Parts without BSQ model
// targets whose debug port cannot be read while the core runs.
const Device kFixed[] = {
    {"Cortex-M0", "Unspecified", {M0}, 1, kFlash0, 0, kRam, 0, false},
    {"Cortex-M0+", "Unspecified", {M0P}, 1, kFlash0, 0, kRam, 0, true},
    {"Cortex-M3", "Unspecified", {M3}, 1, kFlash0, 0, kRam, 0, true},
    {"Cortex-M4", "Unspecified", {M4}, 1, kFlash0, 0, kRam, 0, true},
    {"Cortex-M7", "Unspecified", {M7}, 1, kFlash0, 0, kRam, 0, true},
    {"Cortex-M23", "Unspecified", {M23}, 1, kFlash0, 0, kRam, 0, true},
    {"Cortex-M33", "Unspecified", {M33}, 1, kFlash0, 0, kRam, 0, true},
    {"Cortex-M55", "Unspecified", {M55}, 1, kFlash0, 0, kRam, 0, true},
    {"PVK-SIM-M4", "Plotvik Simulated", {M4}, 1, kFlash0, 512 * KiB, kRam, 128 * KiB, true},
    {"PVK-SIM-M4-NOBSQ", "Plotvik Simulated", {M4}, 1, kFlash0, 512 * KiB, kRam, 128 * KiB, false},
    {"PVK-SIM-M7-DUAL", "Plotvik Simulated", {M7, M4}, 2, kFlash0, 2 * MiB, kRam, 1 * MiB, true},
    {"PVK-SIM-A7", "Plotvik Simulated", {A7}, 1, kFlash0, 0, 0x80000000, 256 * MiB, false},
    {"PVK-SIM-R5-DUAL", "Plotvik Simulated", {R5, R5}, 2, kFlash0, 4 * MiB, 0x00080000, 512 * KiB, true},
    // Test parts with their own memory maps.
    {"KS40-512", "Kelvin Semiconductor", {M4}, 1, kFlash0, 512 * KiB, 0x1FFF0000, 128 * KiB, true},
    {"AM3210F4", "Astera Micro", {M4}, 1, kFlashSt, 256 * KiB, kRam, 64 * KiB, true},
};

// A family of real parts: the part names are the family prefix followed by
// each variant's suffix (package and flash code as in the maker's ordering
// information); all variants share core, flash base and RAM.
struct Variant {
    const char* suffix;
    uint32_t flash;
};
struct Family {
    const char* manufacturer;
    const char* prefix;
    std::initializer_list<uint32_t> cores;
    uint32_t flashAddr;
    uint32_t ramSize;
    std::initializer_list<Variant> variants;
};

// STM32 flash size codes of the ordering information.
constexpr uint32_t c4 = 16 * KiB, c6 = 32 * KiB, c8 = 64 * KiB, cB = 128 * KiB, cZ = 192 * KiB, cC = 256 * KiB,
                   cD = 384 * KiB, cE = 512 * KiB, cG = 1 * MiB, cH = 1536 * KiB, cI = 2 * MiB;

const char* const kSt = "STMicroelectronics";
const char* const kNxp = "NXP";
const char* const kNordic = "Nordic Semiconductor";
const char* const kMchp = "Microchip";
const char* const kTi = "Texas Instruments";
const char* const kSilabs = "Silicon Labs";
const char* const kRenesas = "Renesas";
const char* const kInfineon = "Infineon";
const char* const kGd = "GigaDevice";
const char* const kRpi = "Raspberry Pi";
const char* const kMaxim = "Analog Devices";

const std::vector<Family>& families()
{
    static const std::vector<Family> list{
        // STMicroelectronics
        {kSt, "STM32F030", {M0}, kFlashSt, 8 * KiB, {{"F4", c4}, {"K6", c6}, {"C6", c6}, {"C8", c8}, {"R8", c8}, {"CC", cC}, {"RC", cC}}},
        {kSt, "STM32F042", {M0}, kFlashSt, 6 * KiB, {{"F6", c6}, {"K6", c6}, {"C6", c6}, {"G6", c6}, {"T6", c6}}},
        {kSt, "STM32F051", {M0}, kFlashSt, 8 * KiB, {{"K6", c6}, {"K8", c8}, {"C6", c6}, {"C8", c8}, {"R6", c6}, {"R8", c8}, {"T8", c8}}},
        {kSt, "STM32F072", {M0}, kFlashSt, 16 * KiB, {{"C8", c8}, {"CB", cB}, {"RB", cB}, {"VB", cB}, {"R8", c8}}},
        {kSt, "STM32F091", {M0}, kFlashSt, 32 * KiB, {{"CB", cB}, {"CC", cC}, {"RB", cB}, {"RC", cC}, {"VC", cC}}},
        {kSt, "STM32F103", {M3}, kFlashSt, 20 * KiB, {{"C6", c6}, {"C8", c8}, {"CB", cB}, {"R8", c8}, {"RB", cB}, {"RC", cC}, {"RD", cD}, {"RE", cE}, {"RG", cG}, {"T8", c8}, {"TB", cB}, {"V8", c8}, {"VB", cB}, {"VC", cC}, {"VE", cE}, {"VG", cG}, {"ZC", cC}, {"ZE", cE}, {"ZG", cG}}},
        {kSt, "STM32F105", {M3}, kFlashSt, 64 * KiB, {{"R8", c8}, {"RB", cB}, {"RC", cC}, {"V8", c8}, {"VB", cB}, {"VC", cC}}},
        {kSt, "STM32F107", {M3}, kFlashSt, 64 * KiB, {{"RB", cB}, {"RC", cC}, {"VB", cB}, {"VC", cC}}},
        {kSt, "STM32F205", {M3}, kFlashSt, 128 * KiB, {{"RB", cB}, {"RC", cC}, {"RE", cE}, {"RF", 768 * KiB}, {"RG", cG}, {"VG", cG}, {"ZG", cG}}},
        {kSt, "STM32F207", {M3}, kFlashSt, 128 * KiB, {{"IG", cG}, {"VG", cG}, {"ZG", cG}, {"ZE", cE}}},
        {kSt, "STM32F303", {M4}, kFlashSt, 40 * KiB, {{"C8", c8}, {"CB", cB}, {"CC", cC}, {"K8", c8}, {"RB", cB}, {"RC", cC}, {"RE", cE}, {"VC", cC}, {"VE", cE}, {"ZE", cE}}},
        {kSt, "STM32F334", {M4}, kFlashSt, 16 * KiB, {{"C8", c8}, {"K8", c8}, {"R8", c8}}},
        {kSt, "STM32F401", {M4}, kFlashSt, 96 * KiB, {{"CB", cB}, {"CC", cC}, {"CD", cD}, {"CE", cE}, {"RB", cB}, {"RC", cC}, {"RD", cD}, {"RE", cE}, {"VB", cB}, {"VC", cC}, {"VD", cD}, {"VE", cE}}},
        {kSt, "STM32F405", {M4}, kFlashSt, 192 * KiB, {{"OE", cE}, {"OG", cG}, {"RG", cG}, {"VG", cG}, {"ZG", cG}}},
        {kSt, "STM32F407", {M4}, kFlashSt, 192 * KiB, {{"IE", cE}, {"IG", cG}, {"VE", cE}, {"VG", cG}, {"ZE", cE}, {"ZG", cG}}},
        {kSt, "STM32F411", {M4}, kFlashSt, 128 * KiB, {{"CC", cC}, {"CE", cE}, {"RC", cC}, {"RE", cE}, {"VC", cC}, {"VE", cE}}},
        {kSt, "STM32F429", {M4}, kFlashSt, 256 * KiB, {{"BE", cE}, {"BG", cG}, {"BI", cI}, {"IE", cE}, {"IG", cG}, {"II", cI}, {"NE", cE}, {"NG", cG}, {"NI", cI}, {"VE", cE}, {"VG", cG}, {"VI", cI}, {"ZE", cE}, {"ZG", cG}, {"ZI", cI}}},
        {kSt, "STM32F446", {M4}, kFlashSt, 128 * KiB, {{"MC", cC}, {"ME", cE}, {"RC", cC}, {"RE", cE}, {"VC", cC}, {"VE", cE}, {"ZC", cC}, {"ZE", cE}}},
        {kSt, "STM32F746", {M7}, kFlashSt, 320 * KiB, {{"BE", cE}, {"BG", cG}, {"IE", cE}, {"IG", cG}, {"NE", cE}, {"NG", cG}, {"VE", cE}, {"VG", cG}, {"ZE", cE}, {"ZG", cG}}},
        {kSt, "STM32F767", {M7}, kFlashSt, 512 * KiB, {{"BG", cG}, {"BI", cI}, {"IG", cG}, {"II", cI}, {"NG", cG}, {"NI", cI}, {"VG", cG}, {"VI", cI}, {"ZG", cG}, {"ZI", cI}}},
        {kSt, "STM32H743", {M7}, kFlashSt, 1 * MiB, {{"AG", cG}, {"AI", cI}, {"BG", cG}, {"BI", cI}, {"IG", cG}, {"II", cI}, {"VG", cG}, {"VI", cI}, {"XG", cG}, {"XI", cI}, {"ZG", cG}, {"ZI", cI}}},
        {kSt, "STM32H745", {M7, M4}, kFlashSt, 1 * MiB, {{"BG", cG}, {"BI", cI}, {"IG", cG}, {"II", cI}, {"XG", cG}, {"XI", cI}, {"ZG", cG}, {"ZI", cI}}},
        {kSt, "STM32H747", {M7, M4}, kFlashSt, 1 * MiB, {{"AG", cG}, {"AI", cI}, {"BG", cG}, {"BI", cI}, {"IG", cG}, {"II", cI}, {"XG", cG}, {"XI", cI}, {"ZI", cI}}},
        {kSt, "STM32H750", {M7}, kFlashSt, 1 * MiB, {{"IB", cB}, {"VB", cB}, {"XB", cB}, {"ZB", cB}}},
        {kSt, "STM32L031", {M0P}, kFlashSt, 8 * KiB, {{"C4", c4}, {"C6", c6}, {"E6", c6}, {"F4", c4}, {"F6", c6}, {"G4", c4}, {"G6", c6}, {"K4", c4}, {"K6", c6}}},
        {kSt, "STM32L053", {M0P}, kFlashSt, 8 * KiB, {{"C6", c6}, {"C8", c8}, {"R6", c6}, {"R8", c8}}},
        {kSt, "STM32L073", {M0P}, kFlashSt, 20 * KiB, {{"CB", cB}, {"CZ", cZ}, {"RB", cB}, {"RZ", cZ}, {"V8", c8}, {"VB", cB}, {"VZ", cZ}}},
        {kSt, "STM32L152", {M3}, kFlashSt, 32 * KiB, {{"C6", c6}, {"C8", c8}, {"CB", cB}, {"CC", cC}, {"R6", c6}, {"R8", c8}, {"RB", cB}, {"RC", cC}, {"RD", cD}, {"RE", cE}, {"VB", cB}, {"VC", cC}, {"VD", cD}, {"VE", cE}, {"ZD", cD}, {"ZE", cE}}},
        {kSt, "STM32L432", {M4}, kFlashSt, 64 * KiB, {{"KB", cB}, {"KC", cC}}},
        {kSt, "STM32L433", {M4}, kFlashSt, 64 * KiB, {{"CB", cB}, {"CC", cC}, {"RB", cB}, {"RC", cC}, {"VC", cC}}},
        {kSt, "STM32L476", {M4}, kFlashSt, 128 * KiB, {{"JE", cE}, {"JG", cG}, {"ME", cE}, {"MG", cG}, {"QE", cE}, {"QG", cG}, {"RC", cC}, {"RE", cE}, {"RG", cG}, {"VC", cC}, {"VE", cE}, {"VG", cG}, {"ZE", cE}, {"ZG", cG}}},
        {kSt, "STM32L496", {M4}, kFlashSt, 320 * KiB, {{"AE", cE}, {"AG", cG}, {"QE", cE}, {"QG", cG}, {"RE", cE}, {"RG", cG}, {"VE", cE}, {"VG", cG}, {"ZE", cE}, {"ZG", cG}}},
        {kSt, "STM32G030", {M0P}, kFlashSt, 8 * KiB, {{"C6", c6}, {"C8", c8}, {"F6", c6}, {"J6", c6}, {"K6", c6}, {"K8", c8}}},
        {kSt, "STM32G071", {M0P}, kFlashSt, 36 * KiB, {{"C6", c6}, {"C8", c8}, {"CB", cB}, {"G6", c6}, {"G8", c8}, {"GB", cB}, {"K6", c6}, {"K8", c8}, {"KB", cB}, {"R6", c6}, {"R8", c8}, {"RB", cB}}},
        {kSt, "STM32G431", {M4}, kFlashSt, 32 * KiB, {{"C6", c6}, {"C8", c8}, {"CB", cB}, {"K6", c6}, {"K8", c8}, {"KB", cB}, {"M6", c6}, {"M8", c8}, {"MB", cB}, {"R6", c6}, {"R8", c8}, {"RB", cB}, {"V6", c6}, {"V8", c8}, {"VB", cB}}},
        {kSt, "STM32G474", {M4}, kFlashSt, 128 * KiB, {{"CB", cB}, {"CC", cC}, {"CE", cE}, {"MB", cB}, {"MC", cC}, {"ME", cE}, {"QB", cB}, {"QC", cC}, {"QE", cE}, {"RB", cB}, {"RC", cC}, {"RE", cE}, {"VB", cB}, {"VC", cC}, {"VE", cE}}},
        {kSt, "STM32L552", {M33}, kFlashSt, 256 * KiB, {{"CC", cC}, {"CE", cE}, {"ME", cE}, {"QC", cC}, {"QE", cE}, {"RC", cC}, {"RE", cE}, {"VC", cC}, {"VE", cE}, {"ZC", cC}, {"ZE", cE}}},
        {kSt, "STM32U575", {M33}, kFlashSt, 784 * KiB, {{"AG", cG}, {"AI", cI}, {"CG", cG}, {"CI", cI}, {"OG", cG}, {"OI", cI}, {"QG", cG}, {"QI", cI}, {"RG", cG}, {"RI", cI}, {"VG", cG}, {"VI", cI}, {"ZG", cG}, {"ZI", cI}}},
        {kSt, "STM32WB55", {M4, M0P}, kFlashSt, 256 * KiB, {{"CC", cC}, {"CE", cE}, {"CG", cG}, {"RC", cC}, {"RE", cE}, {"RG", cG}, {"VC", cC}, {"VE", cE}, {"VG", cG}}},
        // Nordic Semiconductor
        {kNordic, "nRF51822-", {M0}, kFlash0, 16 * KiB, {{"QFAA", 256 * KiB}, {"QFAB", 128 * KiB}, {"QFAC", 256 * KiB}, {"CEAA", 256 * KiB}, {"CFAC", 256 * KiB}}},
        {kNordic, "nRF51422-", {M0}, kFlash0, 16 * KiB, {{"QFAA", 256 * KiB}, {"QFAB", 128 * KiB}, {"QFAC", 256 * KiB}, {"CEAA", 256 * KiB}}},
        {kNordic, "nRF528", {M4}, kFlash0, 64 * KiB, {{"05", 192 * KiB}, {"10", 192 * KiB}, {"11", 192 * KiB}, {"20", 256 * KiB}, {"32_xxAA", 512 * KiB}, {"32_xxAB", 256 * KiB}, {"33", 512 * KiB}, {"40", 1 * MiB}}},
        {kNordic, "nRF5340", {M33, M33}, kFlash0, 512 * KiB, {{"_xxAA_APP", 1 * MiB}}},
        {kNordic, "nRF91", {M33}, kFlash0, 256 * KiB, {{"60", 1 * MiB}, {"61", 1 * MiB}}},
        // NXP
        {kNxp, "LPC11", {M0}, kFlash0, 8 * KiB, {{"14/302", 32 * KiB}, {"14/333", 56 * KiB}, {"15/303", 64 * KiB}, {"U24", 32 * KiB}, {"U35", 64 * KiB}, {"U37", 128 * KiB}}},
        {kNxp, "LPC13", {M3}, kFlash0, 8 * KiB, {{"13", 32 * KiB}, {"43", 32 * KiB}, {"47", 64 * KiB}}},
        {kNxp, "LPC17", {M3}, kFlash0, 64 * KiB, {{"51", 32 * KiB}, {"52", 64 * KiB}, {"54", 128 * KiB}, {"56", 256 * KiB}, {"58", 512 * KiB}, {"64", 128 * KiB}, {"65", 256 * KiB}, {"66", 256 * KiB}, {"68", 512 * KiB}, {"69", 512 * KiB}, {"78", 512 * KiB}, {"88", 512 * KiB}}},
        {kNxp, "LPC40", {M4}, kFlash0, 96 * KiB, {{"72", 64 * KiB}, {"74", 128 * KiB}, {"76", 256 * KiB}, {"78", 512 * KiB}, {"88", 512 * KiB}}},
        {kNxp, "LPC43", {M4, M0}, kFlash0, 136 * KiB, {{"37", 1 * MiB}, {"57", 1 * MiB}, {"30", 0}, {"50", 0}}},
        {kNxp, "LPC8", {M0P}, kFlash0, 4 * KiB, {{"02", 16 * KiB}, {"04", 32 * KiB}, {"12", 16 * KiB}, {"24", 32 * KiB}, {"45", 64 * KiB}}},
        {kNxp, "LPC546", {M4}, kFlash0, 200 * KiB, {{"05", 512 * KiB}, {"06", 512 * KiB}, {"07", 512 * KiB}, {"08", 512 * KiB}, {"16", 512 * KiB}, {"18", 512 * KiB}, {"28", 512 * KiB}}},
        {kNxp, "LPC55S", {M33, M33}, kFlash0, 320 * KiB, {{"66", 640 * KiB}, {"69", 640 * KiB}}},
        {kNxp, "LPC55S", {M33}, kFlash0, 256 * KiB, {{"06", 256 * KiB}, {"16", 256 * KiB}, {"26", 512 * KiB}, {"28", 512 * KiB}}},
        {kNxp, "MK", {M4}, kFlash0, 64 * KiB, {{"20DX128VLH5", 128 * KiB}, {"20DX256VLH7", 256 * KiB}, {"22FN512VLH12", 512 * KiB}, {"22FN1M0VLH12", 1 * MiB}, {"64FN1M0VLL12", 1 * MiB}, {"64FX512VLL12", 512 * KiB}, {"66FN2M0VMD18", 2 * MiB}, {"66FX1M0VMD18", 1 * MiB}, {"V31F512VLL12", 512 * KiB}, {"E18F512VLL16", 512 * KiB}}},
        {kNxp, "MKL", {M0P}, kFlash0, 16 * KiB, {{"02Z32VFM4", 32 * KiB}, {"05Z32VFM4", 32 * KiB}, {"17Z256VLH4", 256 * KiB}, {"25Z128VLK4", 128 * KiB}, {"26Z128VLH4", 128 * KiB}, {"27Z64VLH4", 64 * KiB}, {"43Z256VLH4", 256 * KiB}, {"46Z256VLL4", 256 * KiB}, {"82Z128VLK7", 128 * KiB}}},
        {kNxp, "MIMXRT10", {M7}, 0x60000000, 512 * KiB, {{"11", 0}, {"21", 0}, {"52", 0}, {"62", 0}, {"64", 4 * MiB}}},
        {kNxp, "MIMXRT1176", {M7, M4}, 0x30000000, 2 * MiB, {{"", 0}}},
        // Microchip
        {kMchp, "ATSAMD21", {M0P}, kFlash0, 32 * KiB, {{"E15A", 32 * KiB}, {"E16A", 64 * KiB}, {"E17A", 128 * KiB}, {"E18A", 256 * KiB}, {"G15A", 32 * KiB}, {"G16A", 64 * KiB}, {"G17A", 128 * KiB}, {"G18A", 256 * KiB}, {"J15A", 32 * KiB}, {"J16A", 64 * KiB}, {"J17A", 128 * KiB}, {"J18A", 256 * KiB}}},
        {kMchp, "ATSAMD51", {M4}, kFlash0, 192 * KiB, {{"G18A", 256 * KiB}, {"G19A", 512 * KiB}, {"J18A", 256 * KiB}, {"J19A", 512 * KiB}, {"J20A", 1 * MiB}, {"N19A", 512 * KiB}, {"N20A", 1 * MiB}, {"P19A", 512 * KiB}, {"P20A", 1 * MiB}}},
        {kMchp, "ATSAME5", {M4}, kFlash0, 256 * KiB, {{"1J19A", 512 * KiB}, {"1J20A", 1 * MiB}, {"1N20A", 1 * MiB}, {"3J20A", 1 * MiB}, {"4N20A", 1 * MiB}, {"4P20A", 1 * MiB}}},
        {kMchp, "ATSAME70", {M7}, 0x00400000, 384 * KiB, {{"J19B", 512 * KiB}, {"J20B", 1 * MiB}, {"J21B", 2 * MiB}, {"N19B", 512 * KiB}, {"N20B", 1 * MiB}, {"N21B", 2 * MiB}, {"Q19B", 512 * KiB}, {"Q20B", 1 * MiB}, {"Q21B", 2 * MiB}}},
        {kMchp, "ATSAMV71", {M7}, 0x00400000, 384 * KiB, {{"J21B", 2 * MiB}, {"N21B", 2 * MiB}, {"Q19B", 512 * KiB}, {"Q20B", 1 * MiB}, {"Q21B", 2 * MiB}}},
        {kMchp, "ATSAM3", {M3}, 0x00080000, 96 * KiB, {{"X4C", 256 * KiB}, {"X4E", 256 * KiB}, {"X8C", 512 * KiB}, {"X8E", 512 * KiB}, {"A8C", 512 * KiB}}},
        {kMchp, "ATSAM4S", {M4}, 0x00400000, 128 * KiB, {{"2A", 128 * KiB}, {"4B", 256 * KiB}, {"8B", 512 * KiB}, {"8C", 512 * KiB}, {"16B", 1 * MiB}, {"16C", 1 * MiB}}},
        {kMchp, "ATSAML21", {M0P}, kFlash0, 32 * KiB, {{"E18B", 256 * KiB}, {"G18B", 256 * KiB}, {"J16B", 64 * KiB}, {"J17B", 128 * KiB}, {"J18B", 256 * KiB}}},
        {kMchp, "ATSAML1", {M23}, kFlash0, 16 * KiB, {{"0D14A", 16 * KiB}, {"0E16A", 64 * KiB}, {"1D14A", 16 * KiB}, {"1E16A", 64 * KiB}}},
        {kMchp, "ATSAMC21", {M0P}, kFlash0, 32 * KiB, {{"E17A", 128 * KiB}, {"G17A", 128 * KiB}, {"J17A", 128 * KiB}, {"J18A", 256 * KiB}}},
        // Texas Instruments
        {kTi, "TM4C12", {M4}, kFlash0, 32 * KiB, {{"3GH6PM", 256 * KiB}, {"3GH6PZ", 256 * KiB}, {"3FH6PM", 256 * KiB}, {"3BH6PM", 256 * KiB}, {"94NCPDT", 1 * MiB}, {"94KCPDT", 512 * KiB}, {"9ENCPDT", 1 * MiB}, {"9XNCZAD", 1 * MiB}}},
        {kTi, "MSP432", {M4}, kFlash0, 64 * KiB, {{"P401R", 256 * KiB}, {"P401M", 128 * KiB}, {"P4111", 2 * MiB}, {"E401Y", 1 * MiB}}},
        {kTi, "CC", {M4}, kFlash0, 80 * KiB, {{"1352R", 352 * KiB}, {"1352P", 352 * KiB}, {"2652R", 352 * KiB}, {"2642R", 352 * KiB}, {"3220SF", 1 * MiB}}},
        {kTi, "CC26", {M3}, kFlash0, 20 * KiB, {{"40R2F", 128 * KiB}, {"50", 128 * KiB}}},
        // Silicon Labs
        {kSilabs, "EFM32", {M3}, kFlash0, 128 * KiB, {{"GG990F1024", 1 * MiB}, {"GG990F512", 512 * KiB}, {"LG990F256", 256 * KiB}}},
        {kSilabs, "EFM32", {M0P}, kFlash0, 8 * KiB, {{"ZG222F32", 32 * KiB}, {"HG322F64", 64 * KiB}, {"TG11B520F128", 128 * KiB}}},
        {kSilabs, "EFM32", {M4}, kFlash0, 256 * KiB, {{"GG11B820F2048", 2 * MiB}, {"PG12B500F1024", 1 * MiB}, {"PG1B200F256", 256 * KiB}, {"WG990F256", 256 * KiB}}},
        {kSilabs, "EFR32", {M4}, kFlash0, 256 * KiB, {{"MG12P432F1024", 1 * MiB}, {"MG13P732F512", 512 * KiB}, {"BG13P632F512", 512 * KiB}, {"FG14P233F256", 256 * KiB}}},
        {kSilabs, "EFR32", {M33}, kFlash0, 64 * KiB, {{"BG22C224F512", 512 * KiB}, {"MG21A010F1024", 1 * MiB}, {"MG24B220F1536", 1536 * KiB}, {"BG27C140F768", 768 * KiB}}},
        // Renesas
        {kRenesas, "R7FA", {M4}, kFlash0, 32 * KiB, {{"4M1AB", 256 * KiB}, {"6M1AD", 512 * KiB}, {"6M2AF", 1 * MiB}, {"6M3AH", 2 * MiB}, {"4W1AD", 512 * KiB}}},
        {kRenesas, "R7FA", {M33}, kFlash0, 256 * KiB, {{"4M2AD", 512 * KiB}, {"4M3AF", 1 * MiB}, {"6M4AF", 1 * MiB}, {"6M5BH", 2 * MiB}, {"4E2B9", 128 * KiB}}},
        {kRenesas, "R7FA", {M23}, kFlash0, 16 * KiB, {{"2E1A9", 64 * KiB}, {"2L1AB", 256 * KiB}, {"2A1AB", 256 * KiB}, {"2E2A7", 64 * KiB}}},
        // Infineon
        {kInfineon, "XMC1", {M0}, 0x10001000, 16 * KiB, {{"100-T038F0064", 64 * KiB}, {"302-T038X0200", 200 * KiB}, {"404-Q064X0200", 200 * KiB}}},
        {kInfineon, "XMC4", {M4}, 0x0C000000, 160 * KiB, {{"200-F64K256", 256 * KiB}, {"500-F144K1024", 1 * MiB}, {"700-F144K2048", 2 * MiB}, {"800-F144K2048", 2 * MiB}}},
        {kInfineon, "CY8C6", {M4, M0P}, 0x10000000, 288 * KiB, {{"247BZI-D54", 1 * MiB}, {"347BZI-BLD53", 1 * MiB}, {"248BZI-S2D44", 1 * MiB}}},
        {kInfineon, "CY8C4", {M0}, kFlash0, 4 * KiB, {{"245AXI-483", 32 * KiB}, {"248LQI-BL583", 256 * KiB}, {"147AZI-S475", 128 * KiB}}},
        // GigaDevice
        {kGd, "GD32F103", {M3}, kFlashSt, 20 * KiB, {{"C8T6", 64 * KiB}, {"CBT6", 128 * KiB}, {"RCT6", 256 * KiB}, {"VET6", 512 * KiB}, {"ZKT6", 3 * MiB}}},
        {kGd, "GD32F303", {M4}, kFlashSt, 48 * KiB, {{"CCT6", 256 * KiB}, {"RCT6", 256 * KiB}, {"RET6", 512 * KiB}, {"VGT6", 1 * MiB}}},
        {kGd, "GD32E230", {M23}, kFlashSt, 8 * KiB, {{"C8T6", 64 * KiB}, {"K8U6", 64 * KiB}, {"F4P6", 16 * KiB}}},
        // Raspberry Pi (flash sits outside the chip)
        {kRpi, "RP2040", {M0P, M0P}, 0x10000000, 264 * KiB, {{"", 0}}},
        {kRpi, "RP2350", {M33, M33}, 0x10000000, 520 * KiB, {{"", 0}}},
        // Analog Devices (formerly Maxim)
        {kMaxim, "MAX326", {M4}, kFlash0, 128 * KiB, {{"00", 256 * KiB}, {"25", 512 * KiB}, {"30", 2 * MiB}, {"60", 256 * KiB}, {"70", 384 * KiB}}},
    };
    return list;
}

// Built once; the names live as long as the library.
struct List {
    std::deque<std::string> names;
    std::vector<Device> devices;
};

const List& list()
{
    static const List built = [] {
        List l;
        l.devices.assign(std::begin(kFixed), std::end(kFixed));
        for (const Family& f : families()) {
            for (const Variant& v : f.variants) {
                Device d{};
                l.names.push_back(std::string(f.prefix) + v.suffix);
                d.name = l.names.back().c_str();
                d.manufacturer = f.manufacturer;
                d.numCores = 0;
                for (const uint32_t core : f.cores)
                    d.cores[d.numCores++] = core;
                d.flashAddr = f.flashAddr;
                d.flashSize = v.flash;
                d.ramAddr = kRam;
                d.ramSize = f.ramSize;
                d.hasBsq = true;
                l.devices.push_back(d);
            }
        }
        return l;
    }();
    return built;
}

bool sameText(std::string_view a, std::string_view b)
{
    if (a.size() != b.size())
        return false;
    for (size_t i = 0; i < a.size(); ++i) {
        if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i])))
            return false;
    }
    return true;
}

} // namespace

std::span<const Device> devices()
{
    return list().devices;
}

int findDevice(std::string_view name)
{
    const auto all = devices();
    for (size_t i = 0; i < all.size(); ++i) {
        if (sameText(all[i].name, name))
            return static_cast<int>(i);
    }
    return -1;
}

} // namespace sim
