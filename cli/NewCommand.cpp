// plotvik-cli new: the file Save As writes right after the new project
// dialog's "OK" with the same choices, made by the same jobs.
#include "app/Controller.h"
#include "app/JobEngine.h"
#include "app/NewProject.h"
#include "base/Text.h"
#include "cli/Commands.h"
#include "cli/ConsoleBridge.h"
#include "cli/Help.h"
#include "probe/ProbeSampler.h"

#include <cstdio>
#include <cstdlib>
#include <memory>

namespace {

bool isOption(const std::string& a) { return a.size() > 1 && a[0] == '-' && a[1] == '-'; }

// The dialog's widgets as options; what is wrong with the command line, or
// empty when nothing is.
std::string parse(const std::vector<std::string>& args, std::string& out, NewProjectChoices& c)
{
    int sources = 0, connections = 0;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        const bool hasValue = i + 1 < args.size() && !isOption(args[i + 1]);
        const bool takesValue = a == "--elf" || a == "--device" || a == "--script" || a == "--bsq" || a == "--ip" ||
                                a == "--interface" || a == "--speed";
        if (takesValue && !hasValue)
            return "option '" + a + "' needs a value";
        if (a == "--elf") {
            c.elf = args[++i];
        } else if (a == "--device") {
            c.device = args[++i];
        } else if (a == "--script") {
            c.script = args[++i];
        } else if (a == "--bsq") {
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
        } else if (a == "--ip") {
            c.connection = kConnectionTcpIp;
            c.host = args[++i];
            ++connections;
        } else if (a == "--existing-session") {
            c.existingSession = true;
            ++connections;
        } else if (a == "--interface") {
            const std::string name = args[++i];
            int index = -1;
            for (int k = 0; k < 3; ++k)
                if (text::equalsFolded(name, newproject::kInterfaceNames[k]))
                    index = k;
            if (index < 0)
                return "--interface takes JTAG, SWD or FINE, not '" + name + "'";
            c.interfaceIndex = index;
        } else if (a == "--speed") {
            char* end = nullptr;
            const std::string value = args[++i];
            const long khz = std::strtol(value.c_str(), &end, 10);
            // The speed box takes at most five digits.
            if (*end != '\0' || khz < 1 || khz > 99999)
                return "--speed takes 1 to 99999 kHz, not '" + value + "'";
            c.speedKHz = static_cast<std::int32_t>(khz);
        } else if (isOption(a)) {
            return "unknown option '" + a + "'";
        } else if (!out.empty()) {
            return "unexpected argument '" + a + "'";
        } else {
            out = a;
        }
    }
    if (out.empty())
        return "missing OUT.plotvik";
    if (sources > 1)
        return "--bsq and --qtx exclude each other";
    return connections > 1 ? "--usb, --ip and --existing-session exclude each other" : "";
}

}  // namespace

int runNewCommand(const std::vector<std::string>& args)
{
    std::string out;
    NewProjectChoices choices;
    if (const std::string why = parse(args, out, choices); !why.empty())
        return clihelp::usageError("new", why);
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
