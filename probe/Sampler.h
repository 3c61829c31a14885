// What the controller needs of a sampling source (the probe connection with
// its BSQ and QTX samplers). The probe layer implements it; tests use fakes.
#pragma once

#include "base/ProjectSettings.h"

#include <string>

class SampleStore;
class SymbolDatabase;

class Sampler {
public:
    virtual ~Sampler() = default;

    // Open the probe by serial number or host. 0 or negative (message shown).
    virtual int openProbe(const ProjectSettings& s) = 0;
    // Select device, script, interface and speed, connect. May choose the
    // device through the device dialog and write it into `s`.
    virtual int setUpTarget(ProjectSettings& s) = 0;
    // Begin BSQ sampling, or start the QTX channel, whose format replaces the
    // selected symbols and sets the settings' time-stamp flag.
    virtual int startSource(ProjectSettings& s, SymbolDatabase& symbols, SampleStore& store) = 0;
    // QTX: start the up-channel again after a stop.
    virtual int restartQtx() = 0;
    // One batch into the store: records read, or negative on failure.
    virtual int read(const ProjectSettings& s, SampleStore& store) = 0;
    // Stop BSQ or QTX; returns the stop call's result.
    virtual int stopSource(const ProjectSettings& s) = 0;
    virtual bool bsqStarted() const = 0;
    virtual bool qtxStarted() const = 0;

    // Run control of the target.
    virtual bool targetRunning() = 0;
    virtual int halt() = 0;
    virtual int go() = 0;
    virtual int reset() = 0;
    virtual bool probeConnected() = 0;  // open and connected to the target
    virtual void close() = 0;

    // Version line for the log.
    virtual std::string versionLine() = 0;
    // Command string to the probe library; non-zero = rejected.
    virtual int execCommand(const std::string& command) = 0;
    // "SetQTXSearchRanges ..." from the command line, sent at target set-up.
    virtual void setSearchRangeCommand(const std::string& command) { (void)command; }
    // The project's ELF file (its path resolved), named to the probe at target set-up.
    virtual void setElfFile(const std::string& path) { (void)path; }
};
