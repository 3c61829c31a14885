// A sampling source without a probe: every read delivers a few records of a
// counter, and a read can be made to fail.
#pragma once

#include "probe/SampleStore.h"
#include "probe/Sampler.h"

#include <atomic>
#include <cstring>
#include <vector>

class FakeSampler : public Sampler {
public:
    int openProbe(const ProjectSettings&) override { return failOpen ? -1 : (open = true, 0); }
    int setUpTarget(ProjectSettings&) override { return 0; }
    int startSource(ProjectSettings&, SymbolDatabase&, SampleStore&) override
    {
        ++starts;
        bsq = true;
        return 0;
    }
    int restartQtx() override { return 0; }
    int read(const ProjectSettings&, SampleStore& store) override
    {
        ++reads;
        if (failReadAt > 0 && reads >= failReadAt)
            return -1;
        // Three records: time stamp, then a 4-byte counter.
        std::vector<std::uint8_t> buf(store.recordSize() * 3);
        for (int r = 0; r < 3; ++r) {
            std::uint8_t* rec = buf.data() + r * store.recordSize();
            const std::uint32_t ts = counter * 1000;
            std::memcpy(rec, &ts, 4);
            if (store.recordSize() >= 8)
                std::memcpy(rec + 4, &counter, 4);
            ++counter;
        }
        store.storeRecords(buf.data(), buf.size());
        return static_cast<int>(buf.size());
    }
    int stopSource(const ProjectSettings&) override
    {
        ++stops;
        bsq = false;
        return 0;
    }
    bool bsqStarted() const override { return bsq; }
    bool qtxStarted() const override { return false; }
    bool targetRunning() override { return !halted; }
    int halt() override { return halted = true, 0; }
    int go() override { return halted = false, 0; }
    int reset() override { return 0; }
    bool probeConnected() override { return open; }
    void close() override { open = false; }
    std::string versionLine() override { return "fake probe"; }
    int execCommand(const std::string&) override { return 0; }

    std::atomic<bool> failOpen{false}, open{false}, bsq{false}, halted{false};
    std::atomic<int> reads{0}, failReadAt{0}, starts{0}, stops{0};
    std::atomic<std::uint32_t> counter{0};
};
