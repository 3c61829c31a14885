#include "app/JobEngine.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;

// Jobs of the tests: a number to record, a gate the first job may wait on.
struct TestJob : Job {
    int id = 0;
    std::vector<int>* ran = nullptr;
    std::vector<int>* completed = nullptr;
    std::mutex* mutex = nullptr;
    std::atomic<bool>* gate = nullptr;
    JobEngine* engine = nullptr;
    std::vector<TestJob*>* repost = nullptr;  // posted by the completion
};

void recordRun(Job* j)
{
    auto* job = static_cast<TestJob*>(j);
    if (job->gate)
        while (!job->gate->load())
            std::this_thread::sleep_for(1ms);
    std::lock_guard l(*job->mutex);
    job->ran->push_back(job->id);
}

void recordCompletion(Job* j)
{
    auto* job = static_cast<TestJob*>(j);
    {
        std::lock_guard l(*job->mutex);
        job->completed->push_back(job->id);
    }
    if (job->repost)
        for (TestJob* next : *job->repost)
            job->engine->post(next);
}

const JobTypeEntry kTable[] = {{&recordRun, "run"}, {&recordRun, "run too"}, {nullptr, "stop"}};

struct Fixture : ::testing::Test {
    JobEngine engine;
    std::vector<int> ran, completed;
    std::mutex mutex;
    std::vector<std::unique_ptr<TestJob>> jobs;

    void SetUp() override { engine.setJobTable(kTable, 3); }

    TestJob* job(int id, std::uint32_t type = 0)
    {
        auto j = std::make_unique<TestJob>();
        j->id = id;
        j->type = type;
        j->ran = &ran;
        j->completed = &completed;
        j->mutex = &mutex;
        j->engine = &engine;
        j->completion = &recordCompletion;
        jobs.push_back(std::move(j));
        return jobs.back().get();
    }

    void waitForCompletions(std::size_t n)
    {
        for (int i = 0; i < 5000; ++i) {
            {
                std::lock_guard l(mutex);
                if (completed.size() >= n)
                    return;
            }
            std::this_thread::sleep_for(1ms);
        }
        FAIL() << "jobs did not complete";
    }
};

}  // namespace

TEST_F(Fixture, FullRingBlocksThe33rdPosterUntilASlotFreesAndKeepsOrder)
{
    std::atomic<bool> gate{false};
    TestJob* first = job(0);
    first->gate = &gate;
    ASSERT_EQ(engine.post(first), 0);
    for (int i = 1; i < 32; ++i)
        ASSERT_EQ(engine.post(job(i)), 0);

    // The ring is full while job 0 runs: the 33rd poster must wait.
    std::atomic<bool> posted{false};
    TestJob* last = job(32);
    std::thread poster([&] {
        engine.post(last);
        posted = true;
    });
    std::this_thread::sleep_for(50ms);
    EXPECT_FALSE(posted.load());
    gate = true;
    poster.join();
    EXPECT_TRUE(posted.load());
    waitForCompletions(33);

    std::vector<int> expected(33);
    for (int i = 0; i < 33; ++i)
        expected[i] = i;
    std::lock_guard l(mutex);
    EXPECT_EQ(ran, expected);
    EXPECT_EQ(completed, expected);
}

// Waits for `done`; a stuck engine would hang the whole program at its end
// (the destructor posts the stop job), so it is reported and ended here.
template <typename Done>
void waitOrEnd(Done done, const char* what)
{
    const auto ceiling = std::chrono::steady_clock::now() + 120s;
    while (!done()) {
        if (std::chrono::steady_clock::now() > ceiling) {
            ADD_FAILURE() << "the job engine is stuck: " << what;
            std::_Exit(1);
        }
        std::this_thread::sleep_for(1ms);
    }
}

// Posters that wait together on a full ring, and finish at different times so
// the ring also drains while some of them still wait.
TEST_F(Fixture, SeveralPostersIntoAFullRingLoseNothingAndKeepTheirOrder)
{
    const std::vector<int> counts = {40, 75, 110, 150};
    for (int round = 0; round < 10; ++round) {
        SCOPED_TRACE(round);
        {
            std::lock_guard l(mutex);
            ran.clear();
            completed.clear();
        }
        std::atomic<bool> gate{false};
        TestJob* first = job(-1);
        first->gate = &gate;
        std::vector<std::vector<TestJob*>> perPoster;
        std::size_t total = 1;
        for (std::size_t p = 0; p < counts.size(); ++p) {
            perPoster.emplace_back();
            for (int i = 0; i < counts[p]; ++i)
                perPoster.back().push_back(job(static_cast<int>(p) * 1000 + i));
            total += static_cast<std::size_t>(counts[p]);
        }
        ASSERT_EQ(engine.post(first), 0);

        std::atomic<int> returned{0};
        std::atomic<int> failed{0};
        std::vector<std::thread> posters;
        for (const auto& own : perPoster)
            posters.emplace_back([&, own] {
                for (TestJob* j : own) {
                    if (engine.post(j) != 0)
                        ++failed;
                    ++returned;
                }
            });
        // The first job holds the worker: once the other slots are taken
        // every poster is held in post() until the gate opens.
        const int freeSlots = static_cast<int>(JobEngine::kSlots) - 1;
        waitOrEnd([&] { return returned.load() >= freeSlots; }, "the ring never filled");
        EXPECT_EQ(returned.load(), freeSlots);
        gate = true;
        waitOrEnd(
            [&] {
                std::lock_guard l(mutex);
                return completed.size() >= total;
            },
            "posted jobs never completed");
        for (std::thread& t : posters)
            t.join();
        EXPECT_EQ(failed.load(), 0);

        std::lock_guard l(mutex);
        EXPECT_EQ(completed, ran);
        ASSERT_EQ(ran.size(), total);
        EXPECT_EQ(ran.front(), -1);
        // Each poster's jobs ran once each, in the order it posted them.
        std::vector<std::vector<int>> seen(counts.size());
        for (std::size_t i = 1; i < ran.size(); ++i)
            seen.at(static_cast<std::size_t>(ran[i] / 1000)).push_back(ran[i] % 1000);
        for (std::size_t p = 0; p < counts.size(); ++p) {
            std::vector<int> expected(static_cast<std::size_t>(counts[p]));
            for (int i = 0; i < counts[p]; ++i)
                expected[static_cast<std::size_t>(i)] = i;
            EXPECT_EQ(seen[p], expected) << "poster " << p;
        }
    }
}

TEST_F(Fixture, TypeAtOrBeyondTheTableRunsOnlyItsCompletion)
{
    engine.post(job(1, 3));
    engine.post(job(2, 99));
    engine.post(job(3, 1));
    waitForCompletions(3);
    std::lock_guard l(mutex);
    EXPECT_EQ(ran, std::vector<int>({3}));
    EXPECT_EQ(completed, std::vector<int>({1, 2, 3}));
}

// The completion posts while its own job still holds a slot of a full ring:
// only the worker could free one, so it must not wait for it.
TEST_F(Fixture, JobsPostedFromACompletionIntoAFullRingRunAfterThoseAlreadyQueued)
{
    std::atomic<bool> gate{false};
    TestJob* first = job(1);
    first->gate = &gate;
    std::vector<TestJob*> follow = {job(100), job(101)};
    first->repost = &follow;
    std::vector<int> expected = {1};
    engine.post(first);
    for (int i = 2; i <= 32; ++i) {
        engine.post(job(i));
        expected.push_back(i);
    }
    expected.insert(expected.end(), {100, 101});
    gate = true;
    waitOrEnd(
        [&] {
            std::lock_guard l(mutex);
            return completed.size() >= expected.size();
        },
        "a completion posted into a full ring");
    std::lock_guard l(mutex);
    EXPECT_EQ(ran, expected);
}

TEST_F(Fixture, AfterTheStopJobPostsFailAndTheEventIsSignalledOnce)
{
    engine.post(job(1));
    int pumps = 0;
    engine.stopAndWait([&] { ++pumps; });
    EXPECT_TRUE(engine.closed());

    TestJob* late = job(2);
    EXPECT_EQ(engine.post(late), -1);
    std::this_thread::sleep_for(20ms);
    std::lock_guard l(mutex);
    EXPECT_EQ(ran, std::vector<int>({1}));

    // A second stop finds the queue closed and signals nothing.
    Event done;
    Job stop;
    stop.owner = &done;
    stop.type = 2;
    EXPECT_EQ(engine.post(&stop), -1);
    EXPECT_FALSE(done.waitFor(20));
}

TEST_F(Fixture, QueuedJobsAreDroppedWithoutCompletionWhenStopping)
{
    std::atomic<bool> gate{false};
    TestJob* first = job(1);
    first->gate = &gate;
    engine.post(first);
    Event done;
    Job stop;
    stop.owner = &done;
    stop.type = 2;
    engine.post(&stop);
    engine.post(job(2));  // behind the stop job: never runs
    gate = true;
    ASSERT_TRUE(done.waitFor(2000));
    std::this_thread::sleep_for(20ms);
    std::lock_guard l(mutex);
    EXPECT_EQ(ran, std::vector<int>({1}));
    EXPECT_EQ(completed, std::vector<int>({1}));
}
