#pragma once

#include "renderkit/Notices.h"
#include "renderkit/jobs/JobState.h"
#include "renderkit/shot/RenderOptions.h"
#include "renderkit/shot/ShotRenderer.h"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

namespace renderkit {

/// What is asked of every job, over what its bundle says.
struct JobOptions {
  /// Without it the bundle decides.
  std::optional<bool> rayTracing;
  /// The rest as a renderer takes it; its rayTracing and outputBaseDirectory are not used.
  RenderOptions render;
};

/// One bundle file that becomes a video.
struct Job {
  std::string id;
  std::filesystem::path bundleURL;
  JobState state = JobState::queued();
  /// Stops the running task; there while the job runs.
  std::optional<std::stop_source> task;
};

/// Renders bundle files one after another, in the order in which they were submitted, on a
/// thread of its own. Every operation may be called on any thread.
class RenderJobManager {
 public:
  struct Change {
    std::string id;
    std::filesystem::path bundleURL;
    JobState state;
    /// While frames are rendered.
    std::optional<RenderProgress> progress;
    /// With a completed job: what a person should know of it.
    std::vector<std::string> notices;
    /// With a failed job.
    std::exception_ptr failure;
  };
  /// Told of each change of state, one at a time and in their order; it may call the manager.
  using OnChange = std::function<void(const Change& change)>;

  RenderJobManager(std::unique_ptr<ShotRenderer> renderer, std::filesystem::path outputBaseDirectory,
                   JobOptions options = {}, OnChange onChange = {});
  /// Cancels what runs and what waits, and joins the thread.
  ~RenderJobManager();
  RenderJobManager(const RenderJobManager&) = delete;
  RenderJobManager& operator=(const RenderJobManager&) = delete;

  /// Queues a bundle and gives the job's id.
  std::string submit(std::filesystem::path bundleURL);
  /// Nothing for an id that it never gave.
  std::optional<JobState> status(const std::string& id) const;
  /// A queued job is cancelled at once, a running one between frames; false when the job has
  /// ended already or is not known.
  bool cancel(const std::string& id);
  void cancelAll();
  /// Returns when no job is queued or running.
  void wait();

 private:
  void run(const std::stop_token& stop);
  std::optional<std::string> next(const std::stop_token& stop);
  void render(const std::string& id);
  std::filesystem::path renderBundle(const std::string& id, const std::filesystem::path& bundleURL,
                                     Notices& notices, const std::stop_token& stop);
  /// Keeps the change and tells of it.
  void change(Change change);

  std::unique_ptr<ShotRenderer> renderer_;
  std::filesystem::path outputBaseDirectory_;
  JobOptions options_;
  OnChange onChange_;
  mutable std::mutex mutex_;
  std::condition_variable_any changed_;
  std::map<std::string, Job> jobs_;
  std::deque<std::string> queue_;
  std::uint64_t lastID_ = 0;
  /// Held while a change is told, so that they come in their order.
  std::recursive_mutex telling_;
  /// Last, so that it is joined first.
  std::jthread thread_;
};

}  // namespace renderkit
