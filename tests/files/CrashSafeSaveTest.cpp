// Files written while the writer is killed at random moments: each file on
// disk is always one complete version, and a temporary file a killed writer
// left behind never gets in the way of the next write.
#include "FilesTestSupport.h"
#include "SaveScenario.h"
#include "StoreFixture.h"

#include "app/Settings.h"
#include "base/AtomicFile.h"
#include "files/Project.h"
#include "files/RawFile.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <limits>
#include <random>
#include <set>
#include <thread>
#include <vector>

extern char** environ;

namespace {

using namespace savescenario;

// Both versions of every file, written by this process with the same code.
using References = std::array<std::array<std::string, 2>, kKinds>;

References writeReferences(const std::string& folder)
{
    References refs;
    for (int v = 0; v < 2; ++v) {
        const std::string sub = folder + "/v" + std::to_string(v);
        std::filesystem::create_directories(sub);
        for (int k = 0; k < kKinds; ++k) {
            EXPECT_EQ(write(sub, static_cast<Kind>(k), v), 0);
            refs[k][v] = readAll(fileOf(sub, static_cast<Kind>(k)));
        }
    }
    return refs;
}

// A running writer and the read end of its report pipe.
struct Writer {
    pid_t pid = -1;
    int reports = -1;
    long long reported = 0;
    bool ended = false;  // the pipe reached its end: the writer is gone

    Writer(const std::string& folder, long long first, long long count = -1)
    {
        int fds[2];
        if (::pipe2(fds, O_CLOEXEC) != 0)
            return;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
        const std::string firstText = std::to_string(first);
        const std::string countText = std::to_string(count);
        std::vector<char*> argv = {const_cast<char*>(PLOTVIK_SAVE_WRITER_PATH), const_cast<char*>(folder.c_str()),
                                   const_cast<char*>(firstText.c_str())};
        if (count >= 0)
            argv.push_back(const_cast<char*>(countText.c_str()));
        argv.push_back(nullptr);
        if (posix_spawn(&pid, PLOTVIK_SAVE_WRITER_PATH, &actions, nullptr, argv.data(), environ) != 0)
            pid = -1;
        posix_spawn_file_actions_destroy(&actions);
        ::close(fds[1]);
        reports = fds[0];
    }
    ~Writer()
    {
        if (pid > 0) {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, nullptr, 0);
        }
        if (reports >= 0)
            ::close(reports);
    }
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    // Reads reports until `atLeast` writes are done or the writer is gone.
    // The ceiling only stops a writer that hangs; no outcome depends on it.
    void readUntil(long long atLeast)
    {
        const auto ceiling = std::chrono::steady_clock::now() + std::chrono::seconds(120);
        while (!ended && reported < atLeast && std::chrono::steady_clock::now() < ceiling) {
            pollfd p{reports, POLLIN, 0};
            if (::poll(&p, 1, 1000) <= 0)
                continue;
            char buf[64];
            const ssize_t n = ::read(reports, buf, sizeof buf);
            if (n > 0)
                reported += n;
            else if (n == 0 || errno != EINTR)
                ended = true;
        }
    }

    // Kills the writer, collects the reports it still made, and returns how
    // it ended (the waitpid status).
    int kill()
    {
        ::kill(pid, SIGKILL);
        return reap();
    }
    int reap()
    {
        readUntil(std::numeric_limits<long long>::max());
        int status = 0;
        ::waitpid(pid, &status, 0);
        pid = -1;
        return status;
    }
};

// Number of the last write of `kind` among the first `done` (done > kind).
long long lastWriteOf(long long done, int kind) { return done - 1 - (done - 1 - kind) % kKinds; }

// What may be on disk after `done` writes when write number `done` may have
// been under way: for each file, the version of its last finished write, or
// that of the write under way.
void expectOldOrNew(const std::string& folder, long long done, const References& refs)
{
    std::set<std::string> expectedNames;
    for (int k = 0; k < kKinds; ++k) {
        const Kind kind = static_cast<Kind>(k);
        const std::string path = fileOf(folder, kind);
        expectedNames.insert(path);
        expectedNames.insert(AtomicFile::temporaryPath(path));
        std::set<int> allowed;
        if (done > k)
            allowed.insert(versionOf(lastWriteOf(done, k)));
        if (kindOf(done) == kind)
            allowed.insert(versionOf(done));
        if (!std::filesystem::exists(path)) {
            EXPECT_LE(done, k) << path << " is gone after it was written";
            continue;
        }
        const std::string bytes = readAll(path);
        bool matches = false;
        for (int v : allowed)
            matches = matches || bytes == refs[k][v];
        EXPECT_TRUE(matches) << path << " after " << done << " writes is neither version allowed (" << bytes.size()
                             << " bytes; versions have " << refs[k][0].size() << " and " << refs[k][1].size() << ")";
    }
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        EXPECT_TRUE(expectedNames.count(entry.path().string())) << "unexpected file " << entry.path();
}

unsigned seedFromEnvironment()
{
    const char* s = std::getenv("PLOTVIK_CRASH_SEED");
    return s ? static_cast<unsigned>(std::strtoul(s, nullptr, 10)) : 20240607u;
}

struct CrashSafeSaveTest : ::testing::Test {
    QTemporaryDir dir;
    std::string folder = dir.path().toStdString() + "/files";
    References refs = writeReferences(dir.path().toStdString() + "/reference");

    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        std::filesystem::create_directories(folder);
    }
};

TEST_F(CrashSafeSaveTest, EveryVersionReadsBackCompletely)
{
    const std::string sub = dir.path().toStdString() + "/reference";
    for (int v = 0; v < 2; ++v) {
        SCOPED_TRACE(v);
        const std::string vf = sub + "/v" + std::to_string(v);
        for (int k = 0; k < kKinds; ++k)
            EXPECT_NE(refs[k][v], refs[k][1 - v]);

        Project project;
        SymbolDatabase symbols;
        ASSERT_EQ(LoadProject(fileOf(vf, Kind::Project), project, symbols), 0);
        EXPECT_EQ(static_cast<int>(symbols.selected().size()), symbolCount(v));
        EXPECT_EQ(project.settings().ElfFile, "/fw/version" + std::to_string(v) + ".elf");

        // Both exports leave out the newest record: a header and one row less.
        const auto rows = lines(refs[static_cast<int>(Kind::Csv)][v]);
        EXPECT_EQ(static_cast<int>(rows.size()), recordCount(v));
        EXPECT_EQ(refs[static_cast<int>(Kind::Csv)][v].back(), '\n');

        StoreFixture selection;
        for (int s = 0; s < symbolCount(v); ++s)
            selection.select("s" + std::to_string(s), 4, kTypeU32);
        const auto raw = ReadRawRecording(fileOf(vf, Kind::Raw), selection.symbols);
        ASSERT_TRUE(raw);
        EXPECT_EQ(raw->bytes.size(), static_cast<std::size_t>(recordCount(v) - 1) * (4 + 4 * symbolCount(v)));

        Settings settings;
        ASSERT_EQ(settings.loadPath(fileOf(vf, Kind::Settings)), 0);
        std::string value;
        ASSERT_EQ(settings.getString("PATH", "DataFiles", value), 0);
        EXPECT_EQ(value, settingsValue(v));
    }
}

TEST_F(CrashSafeSaveTest, TemporaryFileOfAKilledWriterIsTakenOverByTheNextWrite)
{
    // What a writer killed half-way leaves: a temporary file holding a start.
    for (int k = 0; k < kKinds; ++k) {
        const std::string temp = AtomicFile::temporaryPath(fileOf(folder, static_cast<Kind>(k)));
        writeAll(temp, refs[k][1].substr(0, refs[k][1].size() / 2));
    }
    for (int k = 0; k < kKinds; ++k)
        ASSERT_EQ(write(folder, static_cast<Kind>(k), 0), 0);
    expectOldOrNew(folder, kKinds, refs);
    for (int k = 0; k < kKinds; ++k)
        EXPECT_FALSE(std::filesystem::exists(AtomicFile::temporaryPath(fileOf(folder, static_cast<Kind>(k)))));
}

TEST_F(CrashSafeSaveTest, WriterKilledAtRandomMomentsLeavesOldOrNewFiles)
{
    const unsigned seed = seedFromEnvironment();
    SCOPED_TRACE("PLOTVIK_CRASH_SEED=" + std::to_string(seed));
    std::mt19937 random(seed);
    constexpr int kKills = 240;
    long long done = 0;
    int leftTemporary = 0;
    for (int kill = 0; kill < kKills && !HasFailure(); ++kill) {
        SCOPED_TRACE("kill " + std::to_string(kill) + " after " + std::to_string(done) + " writes");
        Writer writer(folder, done);
        ASSERT_GT(writer.pid, 0);
        // Kill after a few finished writes plus a short random while: the
        // moment varies from run to run, the checks hold at any moment.
        writer.readUntil(random() % 4);
        ASSERT_FALSE(writer.ended) << "the writer ended by itself";
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000));
        const int status = writer.kill();
        ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "status " << status;
        expectOldOrNew(folder, done + writer.reported, refs);
        for (int k = 0; k < kKinds; ++k)
            leftTemporary += std::filesystem::exists(AtomicFile::temporaryPath(fileOf(folder, static_cast<Kind>(k))));
        done += writer.reported;
    }
    std::cout << "[          ] " << kKills << " kills, " << done << " writes finished, " << leftTemporary
              << " times a temporary file was left\n";

    // A writer that runs to its end writes every file twice and leaves
    // nothing but the files.
    Writer last(folder, done, 2 * kKinds);
    const int status = last.reap();
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
    ASSERT_EQ(last.reported, 2 * kKinds);
    done += last.reported;
    expectOldOrNew(folder, done, refs);
    for (int k = 0; k < kKinds; ++k) {
        const std::string path = fileOf(folder, static_cast<Kind>(k));
        EXPECT_EQ(readAll(path), refs[k][versionOf(lastWriteOf(done, k))]);
        EXPECT_FALSE(std::filesystem::exists(AtomicFile::temporaryPath(path)));
    }
}

}  // namespace
