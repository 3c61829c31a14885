#include "app/JobEngine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;

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

struct Fixture;

struct TestJob : Job {
    int id = 0;
    bool gated = false;  // holds the worker until the gate opens
    Fixture* test = nullptr;
    std::vector<TestJob*>* repost = nullptr;  // posted by the completion
};

struct Fixture : ::testing::Test {
    // What the jobs did, in order, and the gate; they outlive the engine.
    std::mutex mutex;
    std::vector<int> ran, completed;
    std::atomic<bool> gate{false};
    JobEngine engine;
    std::vector<std::unique_ptr<TestJob>> jobs;

    static void run(Job* j)
    {
        auto* job = static_cast<TestJob*>(j);
        while (job->gated && !job->test->gate.load())
            std::this_thread::sleep_for(1ms);
        std::lock_guard l(job->test->mutex);
        job->test->ran.push_back(job->id);
    }
    static void complete(Job* j)
    {
        auto* job = static_cast<TestJob*>(j);
        {
            std::lock_guard l(job->test->mutex);
            job->test->completed.push_back(job->id);
        }
        for (TestJob* next : job->repost ? *job->repost : std::vector<TestJob*>{})
            job->test->engine.post(next);
    }

    void SetUp() override
    {
        static const JobTypeEntry table[] = {{&run, "run"}, {&run, "run too"}, {nullptr, "stop"}};
        engine.setJobTable(table, 3);
    }

    TestJob* job(int id, std::uint32_t type = 0, bool gated = false)
    {
        jobs.push_back(std::make_unique<TestJob>());
        TestJob* j = jobs.back().get();
        j->id = id;
        j->type = type;
        j->gated = gated;
        j->test = this;
        j->completion = &complete;
        return j;
    }
    TestJob* gated(int id) { return job(id, 0, true); }

    void waitForCompletions(std::size_t n, const char* what)
    {
        waitOrEnd(
            [&] {
                std::lock_guard l(mutex);
                return completed.size() >= n;
            },
            what);
    }
};

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
        gate = false;
        ASSERT_EQ(engine.post(gated(-1)), 0);
        std::atomic<int> returned{0}, failed{0};
        std::vector<std::thread> posters;
        std::vector<int> posted = {-1};
        for (std::size_t p = 0; p < counts.size(); ++p) {
            std::vector<TestJob*> own;
            for (int i = 0; i < counts[p]; ++i) {
                own.push_back(job(static_cast<int>(p) * 1000 + i));
                posted.push_back(own.back()->id);
            }
            posters.emplace_back([&, own] {
                for (TestJob* j : own) {
                    failed += engine.post(j) != 0;
                    ++returned;
                }
            });
        }
        // The first job holds the worker: once the other slots are taken
        // every poster is held in post() until the gate opens.
        const int freeSlots = static_cast<int>(JobEngine::kSlots) - 1;
        waitOrEnd([&] { return returned.load() >= freeSlots; }, "the ring never filled");
        EXPECT_EQ(returned.load(), freeSlots);
        gate = true;
        waitForCompletions(posted.size(), "posted jobs never completed");
        for (std::thread& t : posters)
            t.join();
        EXPECT_EQ(failed.load(), 0);

        std::lock_guard l(mutex);
        EXPECT_EQ(completed, ran);
        // Each poster's jobs ran once each, in the order it posted them.
        std::vector<int> byPoster = ran;
        std::stable_sort(byPoster.begin(), byPoster.end(), [](int a, int b) { return a / 1000 < b / 1000; });
        EXPECT_EQ(byPoster, posted);
    }
}

// The completion posts while its own job still holds a slot of a full ring:
// only the worker could free one, so it must not wait for it.
TEST_F(Fixture, JobsPostedFromACompletionIntoAFullRingRunAfterThoseAlreadyQueued)
{
    TestJob* first = gated(1);
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
    waitForCompletions(expected.size(), "a completion posted into a full ring");
    std::lock_guard l(mutex);
    EXPECT_EQ(ran, expected);
}

TEST_F(Fixture, StoppingDropsQueuedJobsAndRefusesLaterOnes)
{
    engine.post(gated(1));
    Event done;
    Job stop;
    stop.owner = &done;
    stop.type = 2;
    engine.post(&stop);
    engine.post(job(2));  // behind the stop job: never runs nor completes
    gate = true;
    ASSERT_TRUE(done.waitFor(2000));
    EXPECT_TRUE(engine.closed());
    EXPECT_EQ(engine.post(job(3)), -1);

    // A second stop finds the queue closed and signals nothing.
    Event again;
    stop.owner = &again;
    EXPECT_EQ(engine.post(&stop), -1);
    EXPECT_FALSE(again.waitFor(20));
    std::lock_guard l(mutex);
    EXPECT_EQ(std::tie(ran, completed), std::tuple(std::vector<int>{1}, std::vector<int>{1}));
}

}  // namespace
