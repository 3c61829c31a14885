#include "probe/ProbeSampler.h"

#include "app/Report.h"

// The probe library binding arrives with the sampling work; until then every
// connection attempt fails the way a missing library does.
int ProbeSampler::openProbe(const ProjectSettings&)
{
    report::warning("Failed to load Tarvo library.");
    return -1;
}
int ProbeSampler::setUpTarget(ProjectSettings&) { return -1; }
int ProbeSampler::startSource(const ProjectSettings&) { return -1; }
int ProbeSampler::restartQtx() { return -1; }
int ProbeSampler::read(const ProjectSettings&, SampleStore&) { return -1; }
int ProbeSampler::stopSource(const ProjectSettings&) { return -1; }
bool ProbeSampler::targetRunning() { return false; }
int ProbeSampler::halt() { return -1; }
int ProbeSampler::go() { return -1; }
int ProbeSampler::reset() { return -1; }
bool ProbeSampler::probeConnected() { return false; }
void ProbeSampler::close() {}
std::string ProbeSampler::versionLine() { return {}; }
int ProbeSampler::execCommand(const std::string&) { return 0; }
