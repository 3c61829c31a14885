// The sampling source on top of the Tarvo probe library: connection and
// target set-up, BSQ (the probe reads memory at a fixed period) and QTX (the
// firmware pushes records through an up-channel), and run control.
#pragma once

#include "probe/Sampler.h"
#include "probe/TarvoApi.h"

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

class ProbeSampler final : public Sampler {
public:
    int openProbe(const ProjectSettings& s) override;
    int setUpTarget(ProjectSettings& s) override;
    int startSource(ProjectSettings& s, SymbolDatabase& symbols, SampleStore& store) override;
    int restartQtx() override;
    int read(const ProjectSettings& s, SampleStore& store) override;
    int stopSource(const ProjectSettings& s) override;
    bool bsqStarted() const override { return m_bsqRunning; }
    bool qtxStarted() const override { return m_qtxRunning; }
    bool targetRunning() override;
    int halt() override;
    int go() override;
    int reset() override;
    bool probeConnected() override;
    void close() override;
    std::string versionLine() override;
    int execCommand(const std::string& command) override;
    void setSearchRangeCommand(const std::string& command) override { m_searchRanges = command; }
    void setElfFile(const std::string& path) override { m_elfFile = path; }

    // Shortest BSQ period the probe allows, in µs (0 = unknown).
    std::uint32_t shortestPeriodUs() const { return m_shortestPeriodUs; }
    std::uint32_t recordSize() const { return m_recordSize; }

private:
    int startBsq(const ProjectSettings& s, SymbolDatabase& symbols, SampleStore& store);
    int readBsq(SampleStore& store);
    int startQtx(ProjectSettings& s, SymbolDatabase& symbols, SampleStore& store);
    int readQtx(SampleStore& store);
    void failQtx(const std::string& message);

    std::atomic<bool> m_samplingActive{false};
    std::atomic<bool> m_targetRunning{false};
    std::atomic<bool> m_bsqRunning{false};
    std::atomic<bool> m_qtxRunning{false};
    bool m_existingSession = false;
    std::string m_searchRanges;
    std::string m_elfFile;
    std::uint32_t m_shortestPeriodUs = 0;

    std::vector<TARVO_BSQ_BLOCK> m_blocks;
    std::vector<std::uint8_t> m_readBuffer;
    std::uint32_t m_recordSize = 0;

    std::uint32_t m_qtxChannel = 0;
    // The tail of a read that did not make a whole record: less than one
    // record, and a 32-byte channel name describes at most 88 bytes (eleven
    // 8-byte items). 64 bytes lost the tail of longer records and put every
    // later record out of step.
    std::uint8_t m_carry[128] = {};
    std::uint32_t m_carryCount = 0;
};
