// The application controller: process-wide state, the sixteen application
// jobs that run on the worker, the sampling life cycle and the orderly exit.
// It owns the project, the symbol database and the sample store, and reaches
// the user only through the Bridge.
#pragma once

#include "app/CommandLine.h"
#include "app/JobEngine.h"
#include "base/Bridge.h"
#include "files/Project.h"
#include "probe/SampleStore.h"
#include "probe/Sampler.h"
#include "symbols/SymbolDatabase.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

// Job types; kJobStop is the engine's stop sentinel.
enum JobType : std::uint32_t {
    kJobInit = 0,
    kJobExit,
    kJobCreateProject,
    kJobInitProjSettings,
    kJobParseElf,
    kJobRead,
    kJobReadStart,
    kJobReadPause,
    kJobReadStop,
    kJobSaveProject,
    kJobSaveProjectAs,
    kJobOpenProjFile,
    kJobImportRaw,
    kJobCheckElf,
    kJobUpdateProjSettings,
    kJobSetAppStart,
    kJobStop,
    kJobCount
};

// Exit states.
enum : int { kExitNone = 0, kExitPending = 1, kExitAllowed = 2 };

class Controller {
public:
    using Finished = std::function<void()>;

    Controller(JobEngine& engine, std::unique_ptr<Sampler> sampler);
    ~Controller();
    Controller(const Controller&) = delete;
    Controller& operator=(const Controller&) = delete;

    // The application's controller (set by whoever creates it).
    static Controller* instance();

    void setBridge(Bridge* bridge);
    Bridge* bridge() const { return m_bridge; }
    JobEngine& engine() { return m_engine; }
    Project& project() { return m_project; }
    SymbolDatabase& symbols() { return m_symbols; }
    SampleStore& store() { return m_store; }
    Sampler& sampler() { return *m_sampler; }
    const CommandLine& commandLine() const { return m_commandLine; }

    // --- posts (any thread); -1 when the job could not be posted ---
    int postInit(StartArgs* args, Finished finished);
    int postExit();
    int postCreateProject(const std::string& path);
    int postInitProjSettings(const ProjectSettings* settings);
    int postParseElfFile(const std::string& path, bool reparse);
    int postStartReading();
    int postReadPause();
    int postReadStop();
    int postSaveProject();
    int postSaveProjectAs();
    int postOpenProjFile(const std::string& path, std::atomic<int>* result, Finished finished);
    int postImportRaw(const std::string& path);
    int postCheckElfModifications();
    int postUpdateProjSettings(const ProjectSettings& settings);
    int postSetAppStartAction(std::uint32_t value);

    // Waits until every job posted before this call has completed; false on
    // time-out or a closed queue. Not for the worker itself.
    bool waitForQueue(int timeoutMs = -1);
    // Parks the worker between jobs, so that the interface thread may read
    // and change the symbol tree and the selection (the selection dialog).
    // Once every job posted before has run, `parked` is called on the worker,
    // which then waits until the returned release function is called (once,
    // from any thread). An empty function when the hold could not be posted;
    // `parked` is not called then.
    std::function<void()> holdWorker(std::function<void()> parked);

    // The project's ELF file; a relative path is taken from the project
    // file's folder, so a project opens from any working directory.
    std::string elfPath() const;
    // The project's probe script: a relative path is taken from the project
    // file's folder when the file is there; otherwise it goes to the library
    // as written, which looks in the current folder and then beside itself
    // (what projects made before relied on).
    std::string scriptPath() const;

    // --- queries for the interface thread ---
    bool samplingRunning() const { return m_samplingRunning; }
    bool displayPaused() const { return m_displayPaused; }
    bool stoppedSinceLastStart() const { return m_stoppedSinceLastStart; }
    bool probeConnected() const { return m_probeConnected; }
    bool targetHalted() const { return m_targetHalted; }
    bool elfParsing() const { return m_elfParsing; }
    bool elfCheckPending() const { return m_elfCheckPending; }
    void setElfCheckPending(bool on) { m_elfCheckPending = on; }
    std::uint32_t sampleRate() const { return m_sampleRate; }
    int graphRefreshTarget() const { return m_graphRefreshTarget; }
    void setGraphRefreshTarget(int fps) { m_graphRefreshTarget = fps; }
    int measuredFrameRate() const { return m_measuredFrameRate; }
    void setMeasuredFrameRate(int fps) { m_measuredFrameRate = fps; }
    int exitState() const { return m_exitState; }
    void setExitState(int s) { m_exitState = s; }

    // --- direct target operations of the interface thread ---
    int haltTarget();
    int runTarget();
    int resetTarget();
    void disconnect();

    // The window title from the project state.
    std::string windowTitle() const;
    void updateTitle();
    // The user changed what the project file holds: mark it and show the "*".
    void markModified();
    // Error box through the bridge.
    void showError(const std::string& text);

    // --- job bodies, run on the worker (public for the front ends' tests) ---
    int runStop(Job* job);
    int openOrCreate(const std::string& path, bool create);
    int closeProject();
    int saveProject();
    int saveProjectAs();
    int connectAndStart();

private:
    template <typename J>
    int postJob(J* job, std::uint32_t type, JobCompletion completion);
    void installJobTable();

    // Job handlers and completions (the job table).
    static void onInit(Job*);
    static void onExit(Job*);
    static void onCreateProject(Job*);
    static void onInitProjSettings(Job*);
    static void onParseElf(Job*);
    static void onRead(Job*);
    static void onReadStart(Job*);
    static void onReadPause(Job*);
    static void onReadStop(Job*);
    static void onSaveProject(Job*);
    static void onSaveProjectAs(Job*);
    static void onOpenProjFile(Job*);
    static void onImportRaw(Job*);
    static void onCheckElf(Job*);
    static void onUpdateProjSettings(Job*);
    static void onSetAppStart(Job*);
    static void completeRelease(Job*);
    static void completeExit(Job*);
    static void completeParse(Job*);
    static void completeRead(Job*);
    static void completeStart(Job*);
    static void completeSettings(Job*);

    int readBatch();
    int startReading();
    // `path` joined to the project file's folder when it is relative; empty
    // when it is absolute or there is no project file.
    std::string besideProject(const std::string& path) const;

    JobEngine& m_engine;
    std::unique_ptr<Sampler> m_sampler;
    Bridge* m_bridge = nullptr;
    Project m_project;
    SymbolDatabase m_symbols;
    SampleStore m_store;
    CommandLine m_commandLine;
    ProjectSettings m_working;  // private copy for the running jobs

    std::atomic<bool> m_samplingRunning{false};
    std::atomic<bool> m_displayPaused{true};
    std::atomic<bool> m_stoppedSinceLastStart{true};
    std::atomic<bool> m_clearDataOnNextStart{true};
    std::atomic<bool> m_probeConnected{false};
    std::atomic<bool> m_targetHalted{false};
    std::atomic<int> m_exitState{kExitNone};
    std::atomic<bool> m_elfParsing{false};
    std::atomic<bool> m_elfCheckPending{false};
    std::atomic<std::uint32_t> m_sampleRate{0};
    std::atomic<int> m_graphRefreshTarget{30};
    std::atomic<int> m_measuredFrameRate{0};
    std::uint64_t m_lastReadUs = 0;
    bool m_sessionPrepared = false;
};

// The "Check modified ELF" job body. When the project's ELF file was rebuilt
// since the last parse, asks whether to keep or clear the selection and posts
// the re-parse. Always clears the controller's pending-check mark.
int CheckElfModification(Controller& controller);
