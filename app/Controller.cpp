#include "app/Controller.h"
#include "app/JobRecords.h"

#include "app/Settings.h"
#include "base/Log.h"
#include "base/Product.h"
#include "base/Report.h"
#include "base/Text.h"

#include <atomic>
#include <filesystem>

using namespace jobs;

namespace {

std::atomic<Controller*> g_instance{nullptr};

// Allocation tags, by job type (types 5 and 6 share theirs).
constexpr const char* kTags[kJobCount] = {
    "APP: <Init> Job",
    "APP: <Exit>",
    "APP: <CreateProject> Job",
    "APP: <InitProjSettings>",
    "APP: <ParseELFFile>",
    "APP: <ReadStart>",
    "APP: <ReadStart>",
    "APP: <ReadPause>",
    "APP: <ReadStop>",
    "APP: <SaveProject>",
    "APP: <SaveProjectAs>",
    "APP: <OpenProjFile> Job",
    "APP: <ImportRaw>",
    "APP: <CheckELFModifications> Job",
    "APP: <UpdateProjSettings> Job",
    "APP: <SetAppStartAction> Job",
    "APP: <Stop>",
};

template <typename J>
J* make(std::uint32_t type)
{
    return newJob<J>(kTags[type]);
}

}  // namespace

Controller* Controller::instance() { return g_instance; }

Controller::Controller(JobEngine& engine, std::unique_ptr<Sampler> sampler)
    : m_engine(engine),
      m_sampler(std::move(sampler)),
      m_store(m_symbols),
      m_commandLine(CommandLine::Hooks{
          [this](const std::string& cmd) { m_sampler->execCommand(cmd); },
          [this](const std::string& path) { return openOrCreate(path, false); }})
{
    m_store.setProject(&m_project);
    // Installed here too, so that a front end that posts no Init job (the
    // headless one, tests) still runs its jobs.
    installJobTable();
    Controller* expected = nullptr;
    g_instance.compare_exchange_strong(expected, this);
}

Controller::~Controller()
{
    Controller* expected = this;
    g_instance.compare_exchange_strong(expected, nullptr);
}

void Controller::setBridge(Bridge* bridge)
{
    m_bridge = bridge;
    report::setBridge(bridge);
}

void Controller::showError(const std::string& text) { report::error(text); }

// ---------------------------------------------------------------------------
// Posting

void Controller::installJobTable()
{
    static const JobTypeEntry table[kJobCount] = {
        {&Controller::onInit, "Initialize application"},
        {&Controller::onExit, "Exit application"},
        {&Controller::onCreateProject, "Create project"},
        {&Controller::onInitProjSettings, "Initialize Project Settings"},
        {&Controller::onParseElf, "Parse ELF File"},
        {&Controller::onRead, "Reading data"},
        {&Controller::onReadStart, "Start reading data"},
        {&Controller::onReadPause, "Pause reading data"},
        {&Controller::onReadStop, "Stop reading data"},
        {&Controller::onSaveProject, "Save project"},
        {&Controller::onSaveProjectAs, "Save project as"},
        {&Controller::onOpenProjFile, "Open project file"},
        {&Controller::onImportRaw, "Import Raw"},
        {&Controller::onCheckElf, "Check modified ELF"},
        {&Controller::onUpdateProjSettings, "Update project settings"},
        {&Controller::onSetAppStart, "Set AppStart action"},
        {nullptr, "Stop"},
    };
    m_engine.setJobTable(table, kJobCount);
}

int Controller::postInit(StartArgs* args, Finished finished)
{
    installJobTable();
    auto* job = make<InitJob>(kJobInit);
    if (job) {
        job->args = args;
        job->finished = std::move(finished);
    }
    return postJob(job, kJobInit, &Controller::completeRelease);
}

int Controller::postExit() { return postJob(make<AppJob>(kJobExit), kJobExit, &Controller::completeExit); }

int Controller::postCreateProject(const std::string& path)
{
    auto* job = make<PathJob>(kJobCreateProject);
    if (job)
        job->path = text::truncated(path, text::kPathSize);
    return postJob(job, kJobCreateProject, &Controller::completeRelease);
}

int Controller::postInitProjSettings(const ProjectSettings* settings)
{
    if (!settings)
        return 0;
    auto* job = make<SettingsJob>(kJobInitProjSettings);
    if (job)
        job->settings = *settings;
    return postJob(job, kJobInitProjSettings, &Controller::completeSettings);
}

int Controller::postParseElfFile(const std::string& path, bool reparse)
{
    auto* job = make<PathJob>(kJobParseElf);
    if (job) {
        job->path = text::truncated(path, text::kPathSize);
        job->flag = reparse;
    }
    m_elfParsing = true;
    const int r = postJob(job, kJobParseElf, &Controller::completeParse);
    if (r != 0)
        m_elfParsing = false;
    return r;
}

int Controller::postStartReading() { return postJob(make<AppJob>(kJobReadStart), kJobReadStart, &Controller::completeStart); }
int Controller::postReadPause() { return postJob(make<AppJob>(kJobReadPause), kJobReadPause, &Controller::completeRelease); }
int Controller::postReadStop() { return postJob(make<AppJob>(kJobReadStop), kJobReadStop, &Controller::completeRelease); }
int Controller::postSaveProject() { return postJob(make<AppJob>(kJobSaveProject), kJobSaveProject, &Controller::completeRelease); }
int Controller::postSaveProjectAs() { return postJob(make<AppJob>(kJobSaveProjectAs), kJobSaveProjectAs, &Controller::completeRelease); }

int Controller::postOpenProjFile(const std::string& path, std::atomic<int>* result, Finished finished)
{
    auto* job = make<OpenJob>(kJobOpenProjFile);
    if (job) {
        job->path = text::truncated(path, text::kPathSize);
        job->resultCell = result;
        job->finished = std::move(finished);
    }
    return postJob(job, kJobOpenProjFile, &Controller::completeRelease);
}

int Controller::postImportRaw(const std::string& path)
{
    auto* job = make<PathJob>(kJobImportRaw);
    if (job)
        job->path = text::truncated(path, text::kPathSize);
    return postJob(job, kJobImportRaw, &Controller::completeRelease);
}

int Controller::postCheckElfModifications()
{
    return postJob(make<AppJob>(kJobCheckElf), kJobCheckElf, &Controller::completeRelease);
}

int Controller::postUpdateProjSettings(const ProjectSettings& settings)
{
    auto* job = make<SettingsJob>(kJobUpdateProjSettings);
    if (job)
        job->settings = settings;
    return postJob(job, kJobUpdateProjSettings, &Controller::completeRelease);
}

int Controller::postSetAppStartAction(std::uint32_t value)
{
    auto* job = make<ValueJob>(kJobSetAppStart);
    if (job)
        job->value = value;
    return postJob(job, kJobSetAppStart, &Controller::completeRelease);
}

bool Controller::waitForQueue(int timeoutMs)
{
    // A record of a type beyond the table runs only its completion. The event
    // is shared so that a waiter that gave up leaves nothing dangling.
    struct MarkerJob : Job {
        std::shared_ptr<Event> done;
    };
    auto done = std::make_shared<Event>();
    auto* job = newJob<MarkerJob>("APP: <WaitForQueue>");
    if (!job)
        return false;
    job->done = done;
    job->type = kJobCount;
    job->completion = [](Job* j) {
        static_cast<MarkerJob*>(j)->done->set();
        releaseJob(j);
    };
    if (m_engine.post(job) != 0) {
        releaseJob(job);
        return false;
    }
    if (timeoutMs < 0) {
        done->wait();
        return true;
    }
    return done->waitFor(timeoutMs);
}

std::function<void()> Controller::holdWorker(std::function<void()> parked)
{
    // A record beyond the table runs only its completion, which parks the
    // worker. The hold is shared, so neither side can leave the other dangling.
    struct Hold {
        Event release;
    };
    struct HoldJob : Job {
        std::shared_ptr<Hold> hold;
        std::function<void()> parked;
    };
    auto hold = std::make_shared<Hold>();
    auto* job = newJob<HoldJob>("APP: <HoldWorker>");
    if (!job)
        return {};
    job->hold = hold;
    job->parked = std::move(parked);
    job->type = kJobCount;
    job->completion = [](Job* j) {
        auto* h = static_cast<HoldJob*>(j);
        const std::shared_ptr<Hold> keep = h->hold;
        if (h->parked)
            h->parked();
        releaseJob(j);
        keep->release.wait();
    };
    if (m_engine.post(job) != 0) {
        releaseJob(job);
        return {};
    }
    return [hold] { hold->release.set(); };
}

std::string Controller::besideProject(const std::string& path) const
{
    const std::string project = m_project.path();
    if (path.empty() || project.empty() || std::filesystem::path(path).is_absolute())
        return {};
    std::error_code ec;
    const std::filesystem::path folder = std::filesystem::absolute(project, ec).parent_path();
    if (ec)
        return {};
    return text::truncated((folder / path).lexically_normal().string(), text::kPathSize);
}

std::string Controller::elfPath() const
{
    const std::string elf = m_project.settings().ElfFile;
    const std::string beside = besideProject(elf);
    return beside.empty() ? elf : beside;
}

std::string Controller::scriptPath() const
{
    const std::string script = m_project.settings().ScriptFile;
    const std::string beside = besideProject(script);
    std::error_code ec;
    return !beside.empty() && std::filesystem::is_regular_file(beside, ec) ? beside : script;
}

// ---------------------------------------------------------------------------
// Completions

void Controller::completeRelease(Job* job) { releaseJob(job); }

void Controller::completeExit(Job* job)
{
    ctlOf(job)->m_exitState = job->result;
    releaseJob(job);
}

void Controller::completeParse(Job* job)
{
    Controller* c = ctlOf(job);
    releaseJob(job);
    c->m_elfParsing = false;
    if (c->m_bridge) {
        c->m_bridge->enableUpdates(true);
        c->m_bridge->updateGui();
    }
}

void Controller::completeRead(Job* job)
{
    Controller* c = ctlOf(job);
    releaseJob(job);
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    if (c->m_samplingRunning)
        c->postJob(make<AppJob>(kJobRead), kJobRead, &Controller::completeRead);
}

void Controller::completeStart(Job* job)
{
    Controller* c = ctlOf(job);
    const int result = job->result;
    releaseJob(job);
    if (result < 0)
        c->showError("Failed to start data sampling.");
}

void Controller::completeSettings(Job* job)
{
    Controller* c = ctlOf(job);
    if (c->m_working.IsQTXSession)
        c->connectAndStart();
    releaseJob(job);
}

// ---------------------------------------------------------------------------
// Title and direct target operations

std::string Controller::windowTitle() const
{
    std::string title = product::fullName();
    const std::string path = m_project.path();
    if (m_project.isOpen() && !path.empty()) {
        title += " - [" + path;
        if (m_project.isModified())
            title += " *";
        title += "]";
    }
    return text::truncated(title, 361);
}

void Controller::updateTitle()
{
    if (m_bridge)
        m_bridge->setTitle(windowTitle());
}

void Controller::markModified()
{
    m_project.setModified(true);
    updateTitle();
}

int Controller::haltTarget()
{
    if (!m_probeConnected || m_project.settings().IsQTXSession)
        return -1;
    const int r = m_sampler->halt();
    m_targetHalted = true;
    return r;
}

int Controller::runTarget()
{
    if (!m_probeConnected || m_project.settings().IsQTXSession)
        return -1;
    const int r = m_sampler->go();
    m_targetHalted = false;
    return r;
}

int Controller::resetTarget()
{
    if (!m_probeConnected || m_project.settings().IsQTXSession)
        return -1;
    const int r = m_sampler->reset();
    m_targetHalted = false;
    return r;
}

void Controller::disconnect()
{
    if (m_probeConnected && !m_project.settings().IsQTXSession)
        m_sampler->close();
    m_probeConnected = false;
}
