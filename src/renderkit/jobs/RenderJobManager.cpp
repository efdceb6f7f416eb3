#include "renderkit/jobs/RenderJobManager.h"

#include "renderkit/Failure.h"
#include "renderkit/bundle/BakeBundleDecoder.h"

#include <algorithm>
#include <exception>
#include <new>
#include <utility>

namespace renderkit {

RenderJobManager::RenderJobManager(std::unique_ptr<ShotRenderer> renderer,
                                   std::filesystem::path outputBaseDirectory, JobOptions options,
                                   OnChange onChange)
    : renderer_(std::move(renderer)),
      outputBaseDirectory_(std::move(outputBaseDirectory)),
      options_(std::move(options)),
      onChange_(std::move(onChange)),
      thread_([this](const std::stop_token& stop) { run(stop); }) {}

RenderJobManager::~RenderJobManager() {
  cancelAll();
  thread_.request_stop();
}

std::string RenderJobManager::submit(std::filesystem::path bundleURL) {
  std::string id;
  {
    const std::scoped_lock lock(mutex_);
    id = std::to_string(++lastID_);
    jobs_.emplace(id, Job{.id = id, .bundleURL = bundleURL});
  }
  // Told before the thread can tell that it runs.
  change({.id = id, .bundleURL = std::move(bundleURL), .state = JobState::queued()});
  const std::scoped_lock lock(mutex_);
  // The listener may have cancelled it already.
  if (!jobs_.at(id).state.hasEnded()) queue_.push_back(id);
  changed_.notify_all();
  return id;
}

std::optional<JobState> RenderJobManager::status(const std::string& id) const {
  const std::scoped_lock lock(mutex_);
  const auto found = jobs_.find(id);
  return found == jobs_.end() ? std::nullopt : std::optional(found->second.state);
}

bool RenderJobManager::cancel(const std::string& id) {
  const std::scoped_lock order(telling_);
  std::filesystem::path bundleURL;
  {
    const std::scoped_lock lock(mutex_);
    const auto found = jobs_.find(id);
    if (found == jobs_.end() || found->second.state.hasEnded()) return false;
    if (found->second.task) {
      found->second.task->request_stop();
      return true;
    }
    std::erase(queue_, id);
    bundleURL = found->second.bundleURL;
  }
  change({.id = id, .bundleURL = std::move(bundleURL), .state = JobState::cancelled()});
  return true;
}

void RenderJobManager::cancelAll() {
  std::vector<std::string> ids;
  {
    const std::scoped_lock lock(mutex_);
    for (const auto& [id, job] : jobs_) ids.push_back(id);
  }
  for (const auto& id : ids) cancel(id);
}

void RenderJobManager::wait() {
  {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] {
      return std::ranges::all_of(jobs_, [](const auto& entry) { return entry.second.state.hasEnded(); });
    });
  }
  // Whoever listens has then heard of the last one.
  const std::scoped_lock told(telling_);
}

void RenderJobManager::run(const std::stop_token& stop) {
  while (const auto id = next(stop)) render(*id);
}

std::optional<std::string> RenderJobManager::next(const std::stop_token& stop) {
  std::unique_lock lock(mutex_);
  if (!changed_.wait(lock, stop, [this] { return !queue_.empty(); })) return std::nullopt;
  auto id = std::move(queue_.front());
  queue_.pop_front();
  jobs_.at(id).task.emplace();
  return id;
}

void RenderJobManager::render(const std::string& id) {
  Change end{.id = id};
  Notices notices;
  std::stop_token stop;
  {
    const std::scoped_lock lock(mutex_);
    end.bundleURL = jobs_.at(id).bundleURL;
    stop = jobs_.at(id).task->get_token();
  }
  try {
    end.state = JobState::completed(renderBundle(id, end.bundleURL, notices, stop));
    end.notices = notices.take();
  } catch (const CancelledFailure&) {
    end.state = JobState::cancelled();
  } catch (const std::bad_alloc&) {
    end.state = JobState::failed("[render] out of memory");
    end.failure = std::current_exception();
  } catch (const std::exception& error) {
    end.state = JobState::failed(error.what());
    end.failure = std::current_exception();
  }
  change(std::move(end));
}

std::filesystem::path RenderJobManager::renderBundle(const std::string& id,
                                                     const std::filesystem::path& bundleURL, Notices& notices,
                                                     const std::stop_token& stop) {
  change({.id = id, .bundleURL = bundleURL, .state = JobState::running(0)});
  checkCancellation(stop);
  const auto bundle = BakeBundleDecoder::decode(bundleURL);
  auto options = options_.render;
  options.rayTracing = options_.rayTracing.value_or(bundle.manifest.rayTracing);
  options.outputBaseDirectory = outputBaseDirectory_;
  const auto onProgress = [&](const RenderProgress& progress) {
    const auto share =
        static_cast<double>(progress.frameIndex + 1) / static_cast<double>(progress.frameCount);
    change({.id = id, .bundleURL = bundleURL, .state = JobState::running(share), .progress = progress});
  };
  return renderer_->render(bundle, options, onProgress, notices, stop);
}

void RenderJobManager::change(Change change) {
  const std::scoped_lock order(telling_);
  {
    const std::scoped_lock lock(mutex_);
    jobs_.at(change.id).state = change.state;
    if (change.state.hasEnded()) jobs_.at(change.id).task.reset();
    changed_.notify_all();
  }
  if (onChange_) onChange_(change);
}

}  // namespace renderkit
