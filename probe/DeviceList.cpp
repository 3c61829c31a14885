#include "probe/DeviceList.h"

#include "base/Text.h"
#include "probe/TarvoLibrary.h"

#include <cinttypes>
#include <cstring>

namespace devicelist {

const char* columnTitle(int column)
{
    static const char* const titles[kColumnCount] = {"Manufacturer", "Device", "Core", "NumCores", "Flash Size"};
    return column >= 0 && column < kColumnCount ? titles[column] : "";
}

std::vector<DeviceEntry> load()
{
    std::vector<DeviceEntry> list;
    if (tarvo::load(false))
        return list;
    const int count = tarvo::DEVICE_GetInfo(-1, nullptr);
    if (count <= 0)
        return list;
    list.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        TARVO_DEVICE_INFO info;
        std::memset(&info, 0, sizeof info);
        info.SizeOfStruct = sizeof info;
        if (tarvo::DEVICE_GetInfo(i, &info) < 0)
            continue;
        DeviceEntry e;
        e.name = text::truncated(info.sName ? info.sName : "", 128);
        e.manufacturer = text::truncated(info.sManu ? info.sManu : "", 128);
        const int cores = static_cast<int>(std::min<std::uint32_t>(info.NumCores, TARVO_MAX_CORES));
        e.cores = text::truncated(coreText(info.aCoreId, cores), 256);
        e.numCores = static_cast<std::int32_t>(info.NumCores);
        e.flashSize = info.FlashSize;
        e.flashAddr = info.FlashAddr;
        e.ramAddr = info.RAMAddr;
        e.ramSize = info.RAMSize;
        e.hasBsq = info.HasBSQ != 0;
        list.push_back(std::move(e));
    }
    return list;
}

std::string coreText(const std::uint32_t* coreIds, int count)
{
    struct Name {
        std::uint32_t family;
        const char* text;
    };
    static constexpr Name names[] = {
        {TARVO_CORE_CORTEX_M0, "Cortex-M0"},   {TARVO_CORE_CORTEX_M0PLUS, "Cortex-M0+"},
        {TARVO_CORE_CORTEX_M3, "Cortex-M3"},   {TARVO_CORE_CORTEX_M4, "Cortex-M4"},
        {TARVO_CORE_CORTEX_M7, "Cortex-M7"},   {TARVO_CORE_CORTEX_M23, "Cortex-M23"},
        {TARVO_CORE_CORTEX_M33, "Cortex-M33"}, {TARVO_CORE_CORTEX_M55, "Cortex-M55"},
        {TARVO_CORE_CORTEX_A7, "Cortex-A7"},   {TARVO_CORE_CORTEX_R5, "Cortex-R5"},
    };
    std::string out;
    for (int i = 0; i < count && coreIds[i]; ++i) {
        const std::uint32_t id = coreIds[i];
        std::string name = text::format(32, "0x%.8X", static_cast<unsigned>(id));
        for (const Name& n : names) {
            if (n.family == TARVO_CORE_FAMILY(id))
                name = text::format(64, "%s Rev.%d", n.text, static_cast<int>(TARVO_CORE_REVISION(id)));
        }
        if (!out.empty())
            out += ", ";
        out += name;
    }
    return out;
}

std::string sizeText(std::int64_t bytes)
{
    if (bytes == 0)
        return "0 Bytes";
    struct Unit {
        std::int64_t size;
        const char* name;
    };
    static constexpr Unit units[] = {{1LL << 30, "GB"}, {1LL << 20, "MB"}, {1LL << 10, "KB"}};
    for (const Unit& u : units) {
        if (bytes % u.size == 0)
            return text::format(64, "%d %s", static_cast<int>(bytes / u.size), u.name);
        const std::int64_t half = u.size / 2;
        if (bytes >= u.size && bytes % half == 0)
            return text::format(64, "%d.%d %s", static_cast<int>(bytes / u.size), bytes % u.size ? 5 : 0, u.name);
    }
    const std::uint64_t magnitude = bytes < 0 ? static_cast<std::uint64_t>(-bytes) : static_cast<std::uint64_t>(bytes);
    return text::format(64, "%s%" PRIu64 " Byte%s", bytes < 0 ? "-" : "", magnitude,
                        bytes == 1 || bytes == -1 ? "" : "s");
}

std::string cellText(const DeviceEntry& e, int column)
{
    switch (column) {
    case kColManufacturer: return e.manufacturer;
    case kColDevice: return e.name;
    case kColCore: return e.cores;
    case kColNumCores: return std::to_string(e.numCores);
    case kColFlashSize: return sizeText(e.flashSize);
    default: return {};
    }
}

bool matches(std::string_view text, std::string_view filter)
{
    if (filter.empty())
        return true;
    if (filter.size() > text.size())
        return false;
    for (std::size_t i = 0; i + filter.size() <= text.size(); ++i) {
        std::size_t k = 0;
        while (k < filter.size() && text::foldAscii(text[i + k]) == text::foldAscii(filter[k]))
            ++k;
        if (k == filter.size())
            return true;
    }
    return false;
}

bool anyColumnMatches(const DeviceEntry& entry, std::string_view filter)
{
    for (int c = 0; c < kColumnCount; ++c)
        if (matches(cellText(entry, c), filter))
            return true;
    return false;
}

}  // namespace devicelist
