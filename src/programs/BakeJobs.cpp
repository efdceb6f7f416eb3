#include "programs/BakeJobs.h"

#include "programs/BakeProgressBar.h"
#include "renderkit/bundle/JSONDocument.h"
#include "renderkit/jobs/RenderJobManager.h"
#include "renderkit/shot/SelectionError.h"

#include <fmt/format.h>
#include <boost/json/object.hpp>

#include <chrono>
#include <cstdio>
#include <exception>
#include <memory>

namespace vorlane::bake {
namespace {

namespace json = boost::json;
using renderkit::JobState;
using renderkit::RenderJobManager;
using Clock = std::chrono::steady_clock;

bool isSelectionError(const std::exception_ptr& failure) {
  try {
    if (failure) std::rethrow_exception(failure);
  } catch (const renderkit::SelectionError&) {
    return true;
  } catch (...) {
  }
  return false;
}

/// Prints what the manager tells. Called by one thread at a time.
class Report {
 public:
  explicit Report(const CommandLine& line) : line_(line) {}

  void on(const RenderJobManager::Change& change) {
    const auto name = change.bundleURL.string();
    if (change.state.as<JobState::Running>() && !change.progress) {
      started_ = Clock::now();
      bar_.begin(change.bundleURL.filename().string());
    }
    if (change.state.hasEnded()) bar_.clear();
    if (line_.json) print(stateLine(change));
    if (change.progress) {
      frames_ = change.progress->frameCount;
      bar_.show(*change.progress);
    } else if (const auto* completed = change.state.as<JobState::Completed>()) {
      print({{"bundle", name},
             {"output", completed->outputURL.lexically_normal().string()},
             {"frames", frames_},
             {"seconds", std::chrono::duration<double>(Clock::now() - started_).count()}});
      for (const auto& notice : change.notices) complain(name + ": " + notice);
    } else if (const auto* failed = change.state.as<JobState::Failed>()) {
      complain(name + ": " + failed->message);
      exitCode_ = line_.files.size() == 1 && isSelectionError(change.failure) ? 2 : 1;
    }
  }

  int exitCode() const { return exitCode_; }

 private:
  static json::object stateLine(const RenderJobManager::Change& change) {
    json::object object{{"bundle", change.bundleURL.string()}, {"state", change.state.name()}};
    if (const auto* running = change.state.as<JobState::Running>()) object["progress"] = running->progress;
    if (change.progress) {
      object["frame"] = change.progress->frameIndex;
      object["frameCount"] = change.progress->frameCount;
    }
    if (const auto* failed = change.state.as<JobState::Failed>()) object["message"] = failed->message;
    return object;
  }

  static void print(const json::object& object) {
    std::fputs((renderkit::printJSONLine(object) + "\n").c_str(), stdout);
    std::fflush(stdout);
  }

  const CommandLine& line_;
  ProgressBar bar_;
  Clock::time_point started_;
  std::int64_t frames_ = 0;
  int exitCode_ = 0;
};

}  // namespace

void complain(const std::string& text) {
  std::fputs(("vorlane-bake: " + text + "\n").c_str(), stderr);
}

int runJobs(const CommandLine& line, const Interruption& interruption) {
  using Frames = renderkit::RealityKitShotRenderer::Frames;
  Report report(line);
  RenderJobManager manager(
      std::make_unique<renderkit::RealityKitShotRenderer>(line.plate ? Frames::plate : Frames::picture),
      line.output, line.options, [&](const RenderJobManager::Change& change) { report.on(change); });
  const std::stop_callback stop(interruption.token(), [&] { manager.cancelAll(); });
  for (const auto& bundle : line.files) {
    if (!interruption.happened()) manager.submit(bundle);
  }
  // A signal may have come between the question and the queue.
  if (interruption.happened()) manager.cancelAll();
  manager.wait();
  return interruption.happened() ? 130 : report.exitCode();
}

}  // namespace vorlane::bake
