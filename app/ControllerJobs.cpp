// The bodies of the application jobs; all run on the worker thread.
#include "app/Controller.h"
#include "app/JobRecords.h"
#include "app/Settings.h"
#include "base/Clock.h"
#include "base/Log.h"
#include "base/Product.h"
#include "base/Report.h"
#include "base/Text.h"
#include "files/RawFile.h"
#include "symbols/ElfChangeCheck.h"
#include "symbols/SymbolTree.h"

#include <filesystem>

using namespace jobs;

// ---------------------------------------------------------------------------
// Type 0: Initialize application

void Controller::onInit(Job* j)
{
    auto* job = static_cast<InitJob*>(j);
    Controller* c = job->ctl;
    StartArgs& args = *job->args;
    args.exitNow = false;
    const bool hasArgs = args.argv.size() > 1;

    Settings& settings = Settings::instance();
    const bool settingsLoaded = settings.load("PlotvikSettings.ini") == 0;
    if (settingsLoaded) {
        Log::instance().setLevel(settings.logLevel());
        symtree::setFloatByEncoding(settings.floatByEncoding());
        const std::string logFile = settings.logFile();
        if (!logFile.empty())
            Log::instance().openFile(logFile);
    }
    c->updateTitle();
    RecentLists::instance().load(1, "Software\\Norvex\\" + std::string(product::kName) + "\\", 10);
    if (c->m_bridge) {
        c->m_bridge->refreshRecentLists();
        c->m_bridge->updateGui();
    }

    do {
        Log::instance().beginSection(product::fullName());
        if (c->m_commandLine.parse(args.argv, 2) < 0) {
            args.exitNow = true;
            Log::instance().endSection({});
            break;
        }
        Log::instance().line("Application log started");
        Log::instance().line("%s", c->m_sampler->versionLine().c_str());
        Log::instance().endSection({});

        if (hasArgs) {
            Log::instance().line("Optional command line parameters found");
            for (std::size_t i = 1; i < args.argv.size(); ++i)
                Log::instance().line("[%d]: %s", static_cast<int>(i), args.argv[i].c_str());
        }

        if (!hasArgs) {
            const int action = readStartAction();
            if (action == 1) {
                const std::string scratch = text::truncated(settings.currentProject(), 260);
                (void)scratch;  // read and left unused: the remembered project is not reopened
            } else if (action == 2) {
                args.showNewProjectDialog = true;
            } else {
                args.showWelcomeDialog = true;
            }
        } else {
            args.showNewProjectDialog = args.showWelcomeDialog = false;
            args.startMode = c->m_commandLine.projectNamed() ? 2 : 0;
        }

        if (!args.showNewProjectDialog && !args.showWelcomeDialog && args.startMode == 1)
            c->openOrCreate({}, true);

        if (settingsLoaded) {
            if (c->m_commandLine.parse(args.argv, 1) < 0)
                Log::instance().line("CMDLINE: command line options failed");
        } else {
            Log::instance().errorf("Failed to initialize %s", product::kName);
        }
    } while (false);

    if (job->finished)
        job->finished();
}

// ---------------------------------------------------------------------------
// Type 1: Exit application

void Controller::onExit(Job* job)
{
    Controller* c = ctlOf(job);
    if (c->closeProject() < 0) {
        job->result = kExitNone;
        return;
    }
    job->result = kExitAllowed;
    if (c->m_samplingRunning)
        c->runStop(nullptr);
    if (c->m_probeConnected)
        c->disconnect();
}

// ---------------------------------------------------------------------------
// Types 2, 3, 14: project life cycle

void Controller::onCreateProject(Job* j)
{
    auto* job = static_cast<PathJob*>(j);
    job->result = job->ctl->openOrCreate(job->path, true);
}

void Controller::onInitProjSettings(Job* j)
{
    auto* job = static_cast<SettingsJob*>(j);
    Controller* c = job->ctl;
    if (c->m_project.apply(job->settings))
        c->m_project.setModified(true);
    c->m_project.setDefaultDisplay();
    c->m_project.clearTrigger();
    c->m_working = c->m_project.settings();
    c->m_store.clear();
    c->m_sampleRate = 0;
    if (c->m_bridge)
        c->m_bridge->reset();
    if (!c->m_working.IsQTXSession && c->m_bridge)
        c->m_bridge->showSymbolSelection();
    c->updateTitle();
}

void Controller::onUpdateProjSettings(Job* j)
{
    auto* job = static_cast<SettingsJob*>(j);
    Controller* c = job->ctl;
    if (c->m_project.apply(job->settings))
        c->m_project.setModified(true);
    c->m_working = c->m_project.settings();
    if (c->m_working.IsQTXSession)
        job->result = c->connectAndStart();
    c->updateTitle();
}

int Controller::openOrCreate(const std::string& given, bool create)
{
    // The project is known by its absolute path from here on (title, recent
    // list, remembered project, saves): a relative one would name another
    // file, or none, once reopened from another folder.
    std::string path = given;
    if (!path.empty()) {
        std::error_code ec;
        const auto absolute = std::filesystem::absolute(path, ec);
        if (!ec)
            path = text::truncated(absolute.lexically_normal().string(), text::kPathSize);
    }
    const char* verb = create ? "Creating new" : "Opening";
    if (m_project.isOpen() && closeProject() < 0)
        return -1;
    if (!path.empty())
        Log::instance().beginSection(text::format(1024, "%s project file [%s] ...", verb, path.c_str()));
    else
        Log::instance().beginSection(text::format(1024, "%s project ...", verb));

    m_project.setPath(path);
    m_project.setModified(false);
    m_project.setHasFileName(!path.empty());
    if (!path.empty())
        RecentLists::instance().add(1, path);

    int result = 0;
    if (!create) {
        std::string reason;
        result = LoadProject(path, m_project, m_symbols, &reason);
        if (result < 0) {
            Log::instance().error(
                report::withReason(text::format(1024, "Failed to open project file [%s]", path.c_str()), reason));
        } else {
            if (!m_project.settings().ElfFile.empty())
                postParseElfFile(elfPath(), true);
        }
    }
    m_project.setModified(create);
    m_project.setOpen(result == 0);
    Log::instance().endSection(create ? "New project created successfully" : "Project opened successfully");
    if (result == 0 && !path.empty()) {
        Settings::instance().setCurrentProject(path);
        // The next open or save dialog starts where this project is.
        if (!create)
            Settings::instance().setProjectFilesDir(path);
    }
    updateTitle();
    if (m_bridge) {
        m_bridge->refreshRecentLists();
        m_bridge->updateGui();
    }
    return result;
}

int Controller::closeProject()
{
    if (m_samplingRunning)
        runStop(nullptr);
    if (m_probeConnected)
        disconnect();
    if (!m_project.isOpen())
        return 0;
    if (m_project.isModified()) {
        MessageBoxRequest q;
        q.caption = product::shortName();
        q.text = "The Plotvik project has been modified.\nDo you want to save your changes?";
        q.button0 = "Yes";
        q.button1 = "No";
        q.defaultResult = 0;
        q.icon = kIconQuestion;
        q.dismissedValue = -1;
        const int answer = report::ask(q).result;
        if (answer == 0) {
            if (m_project.hasFileName())
                saveProject();
            else
                saveProjectAs();
        } else if (answer == 2) {
            return -1;
        }
    }
    m_symbols.clearSelected();
    Log::instance().line("Close project");
    m_project.setModified(false);
    m_project.setOpen(false);
    m_project.apply(ProjectSettings{});
    m_store.clear();
    m_sampleRate = 0;
    if (m_bridge)
        m_bridge->reset();
    return 0;
}

// ---------------------------------------------------------------------------
// Types 9, 10, 11: save and open

int Controller::saveProject()
{
    if (!m_project.isOpen())
        return -1;
    const std::string path = m_project.path();
    if (SaveProject(path, m_project, m_symbols) != 0) {
        Log::instance().error("Failed to save project file");
        return -1;
    }
    Log::instance().line("Project saved successfully");
    RecentLists::instance().add(1, path);
    Settings::instance().setCurrentProject(path);
    m_project.setHasFileName(true);
    m_project.setModified(false);
    updateTitle();
    if (m_bridge) {
        m_bridge->refreshRecentLists();
        m_bridge->updateGui();
    }
    return 0;
}

int Controller::saveProjectAs()
{
    if (!m_bridge)
        return -1;
    FileDialogRequest r;
    r.title = "Save project as";
    r.filter = "Plotvik project files (*.plotvik)";
    r.directory = Settings::instance().projectFilesDir();
    const std::string path = text::truncated(m_bridge->saveFileDialog(r), text::kPathSize);
    if (path.empty())
        return -1;
    m_project.setPath(path);
    Settings::instance().setProjectFilesDir(path);
    return saveProject();
}

void Controller::onSaveProject(Job* job) { job->result = ctlOf(job)->saveProject(); }
void Controller::onSaveProjectAs(Job* job) { job->result = ctlOf(job)->saveProjectAs(); }

void Controller::onOpenProjFile(Job* j)
{
    auto* job = static_cast<OpenJob*>(j);
    job->result = job->ctl->openOrCreate(job->path, false);
    if (job->resultCell)
        *job->resultCell = job->result;
    if (job->finished)
        job->finished();
}

// ---------------------------------------------------------------------------
// Types 4, 12, 13, 15

void Controller::onParseElf(Job* j)
{
    auto* job = static_cast<PathJob*>(j);
    Controller* c = job->ctl;
    if (c->m_bridge)
        c->m_bridge->enableUpdates(false);
    // A matching parse replaces the selected records: the trigger follows its
    // symbol to the new record by name, or is left without one.
    const ProjectSettings before = c->m_project.settings();
    const std::string triggerName = before.TriggerSymbol ? before.TriggerSymbol->NameWithParents : std::string();
    job->result = c->m_symbols.parseElf(job->path, job->flag, c->m_bridge);
    if (job->result == 0 && job->flag && before.TriggerSymbol) {
        ProjectSettings s = c->m_project.settings();
        s.TriggerSymbol = nullptr;
        for (Node* n : c->m_symbols.selected())
            if (n && n->NameWithParents == triggerName)
                s.TriggerSymbol = n;
        c->m_project.applyTrigger(s);
    }
}

void Controller::onImportRaw(Job* j)
{
    auto* job = static_cast<PathJob*>(j);
    Controller* c = job->ctl;
    job->result = ImportRaw(job->path, c->m_store, c->m_symbols, c->m_project.settings());
    if (job->result == 0)
        Settings::instance().setDataFilesDir(job->path);
    if (c->m_bridge)
        c->m_bridge->updateData();
}

void Controller::onCheckElf(Job* job) { job->result = CheckElfModification(*ctlOf(job)); }

namespace {

// Clears the controller's pending-check mark on every way out.
struct PendingMark {
    Controller& controller;
    ~PendingMark() { controller.setElfCheckPending(false); }
};

}  // namespace

int CheckElfModification(Controller& controller)
{
    PendingMark mark{controller};
    const ProjectSettings settings = controller.project().settings();
    if (!controller.project().isOpen() || settings.IsQTXSession || !controller.symbols().tree())
        return 0;

    const std::string path = controller.elfPath();
    const ElfChange change = CheckElfChange(path, controller.symbols().elfTime());
    if (change == ElfChange::Gone) {
        // Composed and deliberately left unshown: a build folder that is
        // cleaned now and then must not raise a box every second.
        const std::string gone =
            text::format(516, "The elf file at\n%s\nwas deleted or moved to a different location.\n", path.c_str());
        (void)gone;
    }
    if (change != ElfChange::Modified)
        return 0;

    MessageBoxRequest question;
    question.caption = report::warningCaption();
    question.text = text::format(1024,
                                 "The elf file at\n%s\nwas modified.\nShould Plotvik reparse the elf file and try to match "
                                 "the selected symbols?",
                                 path.c_str());
    question.button0 = "Reparse & Match symbols";
    question.button1 = "Reparse & Clear symbols";
    question.defaultResult = 0;
    question.icon = kIconQuestion;
    question.dismissedValue = -1;
    if (report::ask(question).result == 1) {
        Bridge* bridge = controller.bridge();
        if (bridge)
            bridge->symbolsAboutToChange();
        controller.symbols().clearSelected();
        if (bridge)
            bridge->symbolsChanged();
    }
    return controller.postParseElfFile(path, true);
}

void Controller::onSetAppStart(Job* j)
{
    auto* job = static_cast<ValueJob*>(j);
    job->result = writeStartAction(job->value);
}

// ---------------------------------------------------------------------------
// Types 5 to 8: the sampling life cycle

int Controller::connectAndStart()
{
    m_working = m_project.settings();
    m_working.ScriptFile = scriptPath();
    m_sampler->setSearchRangeCommand(m_commandLine.qtxSearchRangeCommand());
    m_sampler->setElfFile(m_working.ElfFile.empty() ? std::string() : elfPath());
    if (m_sampler->openProbe(m_working) < 0)
        return -1;
    const ProjectSettings before = m_working;
    int r = m_sampler->setUpTarget(m_working);
    if (r >= 0 && (!m_working.IsQTXSession || !m_sampler->qtxStarted()))
        r = m_sampler->startSource(m_working, m_symbols, m_store);
    if (m_working.TargetDevice != before.TargetDevice || m_working.IsQTXWithTimeStamp != before.IsQTXWithTimeStamp) {
        // The device picked in the probe's dialog and the QTX record format
        // are kept in the project.
        ProjectSettings s = m_project.settings();
        s.TargetDevice = m_working.TargetDevice;
        s.IsQTXWithTimeStamp = m_working.IsQTXWithTimeStamp;
        if (m_project.apply(s))
            m_project.setModified(true);
    }
    if (r < 0)
        return r;
    m_probeConnected = true;
    m_sessionPrepared = true;
    return 0;
}

int Controller::startReading()
{
    // A new run waits for the trigger again.
    ProjectSettings fresh = m_project.settings();
    fresh.TriggerFired = false;
    m_project.apply(fresh);
    m_working = fresh;
    m_lastReadUs = clk::microseconds();
    if (!m_probeConnected) {
        const int r = connectAndStart();
        if (r < 0) {
            runStop(nullptr);
            if (m_bridge)
                m_bridge->updateData();
            return r;
        }
    }
    m_store.resetStatistics();
    if (m_stoppedSinceLastStart) {
        m_store.clear();
        m_clearDataOnNextStart = true;
    }
    m_working = m_project.settings();
    m_store.layOut(!m_working.IsQTXSession || m_working.IsQTXWithTimeStamp);
    if (m_clearDataOnNextStart) {
        if (!m_store.prepareFreshStart()) {
            runStop(nullptr);
            return -1;
        }
        m_clearDataOnNextStart = false;
    }
    if (m_working.IsQTXSession)
        m_sampler->restartQtx();
    if (m_probeConnected)
        m_targetHalted = !m_sampler->targetRunning();
    m_store.setOpen(true);
    m_store.setFreshStart(false);

    // A start after a pause finds the read loop still running; a second loop
    // would read twice as often and split the batches.
    const bool loopRunning = m_samplingRunning.exchange(true);
    m_displayPaused = false;
    m_stoppedSinceLastStart = false;
    if (m_bridge)
        m_bridge->updateGui();
    if (!loopRunning)
        postJob(newJob<AppJob>("APP: <ReadStart>"), kJobRead, &Controller::completeRead);
    return 0;
}

void Controller::onReadStart(Job* job) { job->result = ctlOf(job)->startReading(); }

int Controller::readBatch()
{
    m_working = m_project.settings();
    const int r = m_sampler->read(m_working, m_store);
    if (r < 0)
        runStop(nullptr);
    const std::uint64_t now = clk::microseconds();
    const std::uint64_t elapsed = now - m_lastReadUs;
    const std::uint32_t product = static_cast<std::uint32_t>(m_store.lastBatchRecords() * 10000000u);
    m_sampleRate = elapsed ? static_cast<std::uint32_t>(product / elapsed) : 0;
    m_lastReadUs = now;
    return r;
}

void Controller::onRead(Job* job) { job->result = ctlOf(job)->readBatch(); }

void Controller::onReadPause(Job* job) { ctlOf(job)->m_displayPaused = true; }

int Controller::runStop(Job* job)
{
    const ProjectSettings s = m_project.settings();
    int result = m_probeConnected ? 0 : -1;
    if (s.IsQTXSession) {
        if (m_sampler->qtxStarted())
            result = m_sampler->stopSource(s);
    } else if (m_sampler->bsqStarted() && !s.ExistingSession) {
        result = m_sampler->stopSource(s);
    }
    if (m_targetHalted && m_sampler->probeConnected())
        m_sampler->go();
    m_working = ProjectSettings{};
    m_targetHalted = false;
    disconnect();
    m_samplingRunning = false;
    m_displayPaused = true;
    m_stoppedSinceLastStart = true;
    m_store.setOpen(false);
    m_store.setFreshStart(true);
    if (job)
        job->result = result;
    if (m_bridge)
        m_bridge->updateGui();
    return result;
}

void Controller::onReadStop(Job* job) { ctlOf(job)->runStop(job); }
