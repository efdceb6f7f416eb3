#pragma once

#include <filesystem>
#include <string>
#include <utility>
#include <variant>

namespace renderkit {

/// How far a job is. States are equal when they are the same case with equal payloads.
class JobState {
 public:
  struct Running {
    /// From 0 to 1.
    double progress = 0;
    bool operator==(const Running&) const = default;
  };
  struct Completed {
    std::filesystem::path outputURL;
    bool operator==(const Completed&) const = default;
  };
  struct Failed {
    std::string message;
    bool operator==(const Failed&) const = default;
  };
  struct Queued {
    bool operator==(const Queued&) const = default;
  };
  struct Cancelled {
    bool operator==(const Cancelled&) const = default;
  };

  JobState() : state_(Queued{}) {}
  static JobState running(double progress) { return JobState(Running{progress}); }
  static JobState completed(std::filesystem::path url) { return JobState(Completed{std::move(url)}); }
  static JobState failed(std::string message) { return JobState(Failed{std::move(message)}); }
  static JobState queued() { return JobState(Queued{}); }
  static JobState cancelled() { return JobState(Cancelled{}); }

  template <class Case>
  const Case* as() const {
    return std::get_if<Case>(&state_);
  }
  /// Completed, failed or cancelled.
  bool hasEnded() const { return !as<Running>() && !as<Queued>(); }
  /// "running", "completed", "failed", "queued" or "cancelled".
  const char* name() const {
    static constexpr const char* names[] = {"running", "completed", "failed", "queued", "cancelled"};
    return names[state_.index()];
  }
  bool operator==(const JobState&) const = default;

 private:
  using State = std::variant<Running, Completed, Failed, Queued, Cancelled>;
  explicit JobState(State state) : state_(std::move(state)) {}

  State state_;
};

}  // namespace renderkit
