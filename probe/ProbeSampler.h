// The sampling source on top of the Tarvo probe library: connection, target
// set-up, BSQ and QTX sampling, run control.
#pragma once

#include "app/Sampler.h"

class ProbeSampler final : public Sampler {
public:
    int openProbe(const ProjectSettings& s) override;
    int setUpTarget(ProjectSettings& s) override;
    int startSource(const ProjectSettings& s) override;
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

private:
    bool m_bsqRunning = false;
    bool m_qtxRunning = false;
};
