// plotvik-cli record: samples a project headless through the same controller
// and jobs as the GUI, then writes the exports.
#include "app/Controller.h"
#include "app/InstallPaths.h"
#include "app/JobEngine.h"
#include "base/AtomicFile.h"
#include "base/Report.h"
#include "cli/Commands.h"
#include "cli/ConsoleBridge.h"
#include "cli/Help.h"
#include "cli/TriggerOption.h"
#include "files/CsvExport.h"
#include "files/RawFile.h"
#include "probe/ProbeSampler.h"
#include "probe/TarvoLibrary.h"
#include "view/GraphPicture.h"

#include <QApplication>
#include <QBuffer>
#include <QCoreApplication>
#include <QImage>
#include <QStandardPaths>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>

namespace {

struct Options {
    std::string project, csv, praw, png;
    double seconds = 0;
    TriggerOption trigger;
};

// What is wrong with the command line; empty when nothing is.
std::string parse(const std::vector<std::string>& args, Options& o)
{
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        const bool takesValue = a == "--seconds" || a == "--csv" || a == "--praw" || a == "--png" || a == "--trigger";
        if (takesValue && i + 1 == args.size())
            return "option '" + a + "' needs a value";
        if (a == "--seconds") {
            o.seconds = std::atof(args[++i].c_str());
        } else if (a == "--csv") {
            o.csv = args[++i];
        } else if (a == "--praw") {
            o.praw = args[++i];
        } else if (a == "--png") {
            o.png = args[++i];
        } else if (a == "--trigger") {
            std::string error;
            if (!parseTriggerOption(args[++i], o.trigger, error))
                return error;
        } else if (!a.empty() && a[0] == '-') {
            return "unknown option '" + a + "'";
        } else if (!o.project.empty()) {
            return "unexpected argument '" + a + "'";
        } else {
            o.project = a;
        }
    }
    if (o.project.empty())
        return "missing PROJECT.plotvik";
    return o.seconds > 0 ? "" : "--seconds takes a time above 0";
}

// Records whose time stamps do not follow on at the sampling period.
std::uint32_t countGaps(const SampleStore& store, std::uint32_t periodUs)
{
    std::uint32_t gaps = 0;
    const std::uint32_t n = store.recordCount();
    for (std::uint32_t i = 1; i < n; ++i)
        if (store.timeStampAt(i) - store.timeStampAt(i - 1) != periodUs)
            ++gaps;
    return gaps;
}

}  // namespace

int runRecordCommand(const std::vector<std::string>& args)
{
    Options o;
    if (const std::string why = parse(args, o); !why.empty())
        return clihelp::usageError("record", why);
    int argc = 1;
    char name[] = "plotvik-cli";
    char* argv[] = {name, nullptr};
    // The picture is drawn by the graph's widget, which needs a widget
    // application; the offscreen platform draws without any display.
    std::unique_ptr<QCoreApplication> app;
    if (!o.png.empty()) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        app = std::make_unique<QApplication>(argc, argv);
    } else {
        app = std::make_unique<QCoreApplication>(argc, argv);
    }
    tarvo::setApplicationPath(installpaths::applicationFile());

    JobEngine engine;
    ConsoleBridge bridge;
    Controller controller(engine, std::make_unique<ProbeSampler>());
    controller.setBridge(&bridge);

    StartArgs start;
    start.argv = {"plotvik-cli", "-openprj" + o.project};
    controller.postInit(&start, nullptr);
    controller.waitForQueue();
    if (!controller.project().isOpen()) {
        std::fprintf(stderr, "plotvik-cli record: could not open project %s\n", o.project.c_str());
        engine.stopAndWait([] {});
        return 1;
    }
    controller.waitForQueue();  // the ELF parse the open posted

    if (o.trigger.given) {
        // The selection is the worker's: it is idle between the jobs waited for.
        std::string error;
        if (!applyTriggerOption(o.trigger, controller.project(), controller.symbols().selected(), error)) {
            std::fprintf(stderr, "plotvik-cli record: %s\n", error.c_str());
            engine.stopAndWait([] {});
            controller.setBridge(nullptr);
            return 2;
        }
    }

    controller.postStartReading();
    controller.waitForQueue();
    if (!controller.samplingRunning()) {
        engine.stopAndWait([] {});
        return 1;
    }
    bool waiting = controller.project().settings().TriggerOn;
    if (waiting)
        std::printf("trigger: waiting for %s\n", describeTrigger(controller.project().settings()).c_str());
    std::fflush(stdout);
    const auto reportFired = [&] {
        if (waiting && controller.project().settings().TriggerFired) {
            std::printf("trigger: fired at %u us\n", controller.store().triggerTimeStamp());
            std::fflush(stdout);
            waiting = false;
        }
    };
    const auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(o.seconds);
    while (std::chrono::steady_clock::now() < until && controller.samplingRunning()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        reportFired();
    }
    const bool failedWhileRunning = !controller.samplingRunning();
    controller.postReadStop();
    controller.waitForQueue();
    reportFired();
    if (waiting)
        std::printf("trigger: did not fire\n");

    const SampleStore& store = controller.store();
    const ProjectSettings settings = controller.project().settings();
    const std::uint32_t records = store.recordCount();
    std::printf("records: %u\n", records);
    std::printf("record rate: %.1f records/s\n", records / o.seconds);
    if (!settings.IsQTXSession)
        std::printf("gaps in the time stamps: %u\n", countGaps(store, settings.SamplingPeriod));

    int status = failedWhileRunning ? 1 : 0;
    if (!o.csv.empty()) {
        if (ExportCsv(o.csv, store, controller.symbols()) == 0)
            std::printf("csv: %s\n", o.csv.c_str());
        else
            status = 1;
    }
    if (!o.praw.empty()) {
        if (ExportRaw(o.praw, store, controller.symbols()) == 0)
            std::printf("praw: %s\n", o.praw.c_str());
        else
            status = 1;
    }
    if (!o.png.empty()) {
        const QImage picture = renderGraphPicture(controller.store(), controller.symbols());
        // Encoded in memory and renamed into place, like every other file
        // written: an interrupted run leaves the previous picture whole.
        QBuffer encoded;
        encoded.open(QIODevice::WriteOnly);
        AtomicFile file(o.png);
        bool written = picture.save(&encoded, "PNG") && file.open(AtomicFile::Mode::Binary);
        if (written) {
            file.write(encoded.data().constData(), static_cast<std::size_t>(encoded.data().size()));
            written = file.commit();
        }
        if (written) {
            std::printf("png: %s\n", o.png.c_str());
        } else {
            std::fprintf(stderr, "plotvik-cli record: could not write %s\n", o.png.c_str());
            status = 1;
        }
    }
    engine.stopAndWait([] {});
    controller.setBridge(nullptr);
    return status;
}
