// plotvik-cli devices: the device selection table as text.
#include "app/InstallPaths.h"
#include "cli/Commands.h"
#include "cli/Help.h"
#include "probe/DeviceList.h"
#include "probe/TarvoLibrary.h"

#include <algorithm>
#include <cstdio>

int runDevicesCommand(const std::vector<std::string>& args)
{
    if (args.size() > 1)
        return clihelp::usageError("devices", "unexpected argument '" + args[1] + "'");
    tarvo::setApplicationPath(installpaths::applicationFile());
    std::vector<DeviceEntry> list = devicelist::load();
    if (list.empty()) {
        std::fputs("plotvik-cli devices: the probe library lists no devices\n", stderr);
        return 1;
    }
    const std::string filter = args.empty() ? std::string() : args[0];
    std::erase_if(list, [&](const DeviceEntry& e) { return !devicelist::anyColumnMatches(e, filter); });

    // In the dialog's first order: by manufacturer, the generic cores first.
    std::stable_sort(list.begin(), list.end(), [](const DeviceEntry& a, const DeviceEntry& b) {
        const bool ua = a.manufacturer == "Unspecified", ub = b.manufacturer == "Unspecified";
        if (ua != ub)
            return ua;
        return devicelist::cellText(a, devicelist::kColManufacturer) < devicelist::cellText(b, devicelist::kColManufacturer);
    });
    std::size_t width[devicelist::kColumnCount];
    for (int c = 0; c < devicelist::kColumnCount; ++c) {
        width[c] = std::string(devicelist::columnTitle(c)).size();
        for (const DeviceEntry& e : list)
            width[c] = std::max(width[c], devicelist::cellText(e, c).size());
    }
    const auto row = [&](auto cell) {
        for (int c = 0; c < devicelist::kColumnCount; ++c) {
            const std::string t = cell(c);
            if (c + 1 < devicelist::kColumnCount)
                std::printf("%-*s  ", static_cast<int>(width[c]), t.c_str());
            else
                std::printf("%s\n", t.c_str());
        }
    };
    row([](int c) { return std::string(devicelist::columnTitle(c)); });
    for (const DeviceEntry& e : list)
        row([&](int c) { return devicelist::cellText(e, c); });
    return 0;
}
