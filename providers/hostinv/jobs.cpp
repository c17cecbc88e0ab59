// Threads of asynchronous calls; see the header.
#include "jobs.h"

#include <cstring>
#include <system_error>
#include <utility>

#include "zn/status.h"

namespace hostinv {

Jobs::~Jobs() {
  StopAll();
}

void Jobs::StopAll() {
  std::list<Job> jobs;
  {
    const std::lock_guard lock(mutex_);
    closed_ = true;
    jobs.swap(jobs_);
  }
  for (Job& job : jobs) job.stop = true;
  for (Job& job : jobs) job.thread.join();
}

u32 Jobs::Start(const ObjectId& task, Work work) {
  const std::lock_guard lock(mutex_);
  JoinEnded();
  if (closed_) return ZNE_SHUTDOWN_STARTED;
  if (jobs_.size() >= kMost) return ZNE_OBJECT_IN_USE;
  Job& job = jobs_.emplace_back();
  job.task = task;
  try {
    job.thread = std::thread([&job, work = std::move(work)] {
      work(job.stop);
      job.ended = true;
    });
  } catch (const std::system_error&) {
    jobs_.pop_back();
    return ZNE_OBJECT_IN_USE;
  }
  return 0;
}

u32 Jobs::Stop(const ObjectId& task) {
  const std::lock_guard lock(mutex_);
  for (Job& job : jobs_) {
    if (job.ended || std::memcmp(&job.task, &task, sizeof(task)) != 0) continue;
    job.stop = true;
    return 0;
  }
  return ZNE_THING_NOT_FOUND;
}

void Jobs::JoinEnded() {
  // An ended job has nothing left to do but return, so that joining it here waits for no one.
  std::erase_if(jobs_, [](Job& job) {
    if (!job.ended) return false;
    job.thread.join();
    return true;
  });
}

}  // namespace hostinv
