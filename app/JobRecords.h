// Payloads of the application jobs (private to the controller).
#pragma once

#include "app/Controller.h"
#include "base/Report.h"

#include <atomic>
#include <string>

namespace jobs {

struct AppJob : Job {
    Controller* ctl = nullptr;
};
struct InitJob : AppJob {
    StartArgs* args = nullptr;
    Controller::Finished finished;
};
struct PathJob : AppJob {
    std::string path;  // at most 259 characters
    bool flag = false;
};
struct SettingsJob : AppJob {
    ProjectSettings settings;
};
struct OpenJob : AppJob {
    std::string path;
    std::atomic<int>* resultCell = nullptr;
    Controller::Finished finished;
};
struct ValueJob : AppJob {
    std::uint32_t value = 0;
};

}  // namespace jobs

template <typename J>
inline int Controller::postJob(J* job, std::uint32_t type, JobCompletion completion)
{
    if (!job) {
        showError("Insufficient memory!");
        return -1;
    }
    job->ctl = this;
    job->type = type;
    job->completion = completion;
    if (m_engine.post(job) != 0) {
        releaseJob(job);
        return -1;
    }
    return 0;
}

namespace jobs {

inline Controller* ctlOf(Job* job) { return static_cast<AppJob*>(job)->ctl; }

}  // namespace jobs
