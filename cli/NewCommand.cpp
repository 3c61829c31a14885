// plotvik-cli new: the file Save As writes right after the new project
// dialog's "OK" with the same choices, made by the same jobs.
#include "app/Controller.h"
#include "app/JobEngine.h"
#include "app/NewProject.h"
#include "app/Text.h"
#include "cli/Commands.h"
#include "cli/ConsoleBridge.h"
#include "probe/ProbeSampler.h"

#include <cstdio>
#include <cstdlib>
#include <memory>

namespace {

const char* const kUsage =
    "usage: plotvik-cli new OUT.plotvik [--elf FILE] [--device NAME] [--bsq PERIOD_US | --qtx]\n"
    "                   [--usb [SERIAL] | --ip HOST | --existing-session] [--interface JTAG|SWD|FINE]\n"
    "                   [--speed KHZ] [--script FILE]\n";

bool isOption(const std::string& a) { return a.size() > 1 && a[0] == '-' && a[1] == '-'; }

// The dialog's widgets as options; false on a malformed command line.
bool parse(const std::vector<std::string>& args, std::string& out, NewProjectChoices& c)
{
    int sources = 0, connections = 0;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        const bool hasValue = i + 1 < args.size() && !isOption(args[i + 1]);
        if (a == "--elf" && hasValue) {
            c.elf = args[++i];
        } else if (a == "--device" && hasValue) {
            c.device = args[++i];
        } else if (a == "--script" && hasValue) {
            c.script = args[++i];
        } else if (a == "--bsq" && hasValue) {
            c.qtx = false;
            c.periodText = args[++i];
            ++sources;
        } else if (a == "--qtx") {
            c.qtx = true;
            ++sources;
        } else if (a == "--usb") {
            c.connection = kConnectionUsb;
            if (hasValue && args[i + 1].find_first_not_of("0123456789") == std::string::npos) {
                c.serialGiven = true;
                c.serialText = args[++i];
            }
            ++connections;
        } else if (a == "--ip" && hasValue) {
            c.connection = kConnectionTcpIp;
            c.host = args[++i];
            ++connections;
        } else if (a == "--existing-session") {
            c.existingSession = true;
            ++connections;
        } else if (a == "--interface" && hasValue) {
            const std::string name = args[++i];
            int index = -1;
            for (int k = 0; k < 3; ++k)
                if (text::equalsFolded(name, newproject::kInterfaceNames[k]))
                    index = k;
            if (index < 0)
                return false;
            c.interfaceIndex = index;
        } else if (a == "--speed" && hasValue) {
            char* end = nullptr;
            const long khz = std::strtol(args[++i].c_str(), &end, 10);
            // The speed box takes at most five digits.
            if (*end != '\0' || khz < 1 || khz > 99999)
                return false;
            c.speedKHz = static_cast<std::int32_t>(khz);
        } else if (!isOption(a) && out.empty()) {
            out = a;
        } else {
            return false;
        }
    }
    return !out.empty() && sources <= 1 && connections <= 1;
}

}  // namespace

int runNewCommand(const std::vector<std::string>& args)
{
    std::string out;
    NewProjectChoices choices;
    if (!parse(args, out, choices)) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    if (const std::string why = newproject::refusal(choices); !why.empty()) {
        std::fprintf(stderr, "plotvik-cli new: %s\n", why.c_str());
        return 1;
    }
    const ProjectSettings payload = newproject::payload(choices);

    JobEngine engine;
    ConsoleBridge bridge;
    bridge.saveAnswer = out;
    Controller controller(engine, std::make_unique<ProbeSampler>());
    controller.setBridge(&bridge);
    StartArgs start;
    start.argv = {"plotvik-cli"};
    controller.postInit(&start, nullptr);
    // What the dialog's "OK" posts, then Save As.
    controller.postCreateProject({});
    controller.postInitProjSettings(&payload);
    controller.postSaveProjectAs();
    controller.waitForQueue();
    const bool saved = controller.project().hasFileName() && !controller.project().isModified();
    engine.stopAndWait([] {});
    controller.setBridge(nullptr);
    if (!saved) {
        std::fprintf(stderr, "plotvik-cli new: could not write %s\n", out.c_str());
        return 1;
    }
    std::printf("%s\n", out.c_str());
    return 0;
}
