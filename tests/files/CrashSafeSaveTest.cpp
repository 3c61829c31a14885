// Files written while the writer is killed at random moments: each file on
// disk is always one complete version, and a temporary file a killed writer
// left behind never gets in the way of the next write.
#include "SaveScenario.h"

#include "base/AtomicFile.h"

#include <QProcess>

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <set>
#include <thread>

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

// A running writer; it reports each finished write with one byte.
struct Writer {
    QProcess process;
    long long reported = 0;

    Writer(const std::string& folder, long long first, long long count = -1)
    {
        QStringList args = {QString::fromStdString(folder), QString::number(first)};
        if (count >= 0)
            args << QString::number(count);
        process.start(PLOTVIK_SAVE_WRITER_PATH, args);
        process.waitForStarted();
    }

    // Reads reports until `atLeast` writes are done or the writer is gone (the
    // ceiling only stops a hanging writer).
    void readUntil(long long atLeast)
    {
        const auto ceiling = std::chrono::steady_clock::now() + std::chrono::seconds(120);
        while (reported < atLeast && process.state() == QProcess::Running &&
               std::chrono::steady_clock::now() < ceiling) {
            process.waitForReadyRead(1000);
            reported += process.readAllStandardOutput().size();
        }
    }

    // Kills the writer for a crash exit; whether it ended as `expected`.
    bool end(QProcess::ExitStatus expected)
    {
        if (expected == QProcess::CrashExit)
            process.kill();
        const bool finished = process.waitForFinished(120000);
        reported += process.readAllStandardOutput().size();
        return finished && process.exitStatus() == expected &&
               (expected == QProcess::CrashExit || process.exitCode() == 0);
    }
};

// Number of the last write of `kind` among the first `done` (done > kind).
long long lastWriteOf(long long done, int kind) { return done - 1 - (done - 1 - kind) % kKinds; }

// After `done` writes, with write `done` perhaps under way: each file holds the
// version of its last finished write or of the one under way.
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

TEST_F(CrashSafeSaveTest, WriterKilledAtRandomMomentsLeavesOldOrNewFiles)
{
    const char* seedText = std::getenv("PLOTVIK_CRASH_SEED");
    const unsigned seed = seedText ? static_cast<unsigned>(std::strtoul(seedText, nullptr, 10)) : 20240607u;
    SCOPED_TRACE("PLOTVIK_CRASH_SEED=" + std::to_string(seed));
    std::mt19937 random(seed);
    constexpr int kKills = 240;
    // What a writer killed half-way leaves: a temporary file holding a start.
    // The next write of each file takes it over.
    for (int k = 0; k < kKinds; ++k)
        writeAll(AtomicFile::temporaryPath(fileOf(folder, static_cast<Kind>(k))), refs[k][1].substr(0, 100));
    long long done = 0;
    for (int kill = 0; kill < kKills && !HasFailure(); ++kill) {
        SCOPED_TRACE("kill " + std::to_string(kill) + " after " + std::to_string(done) + " writes");
        Writer writer(folder, done);
        ASSERT_EQ(writer.process.state(), QProcess::Running);
        // Kill after a few writes and a random while: the checks hold at any moment.
        writer.readUntil(random() % 4);
        ASSERT_EQ(writer.process.state(), QProcess::Running) << "the writer ended by itself";
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000));
        ASSERT_TRUE(writer.end(QProcess::CrashExit));
        done += writer.reported;
        expectOldOrNew(folder, done, refs);
    }

    // A writer that runs to its end leaves nothing but the files.
    Writer last(folder, done, 2 * kKinds);
    ASSERT_TRUE(last.end(QProcess::NormalExit));
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
