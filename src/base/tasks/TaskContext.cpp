#include "base/tasks/TaskContext.h"

namespace vorlane {
namespace {

std::shared_ptr<const TaskContext>& slot() {
  thread_local std::shared_ptr<const TaskContext> context;
  return context;
}

}  // namespace

const std::shared_ptr<const TaskContext>& currentTaskContext() {
  return slot();
}

TaskContextScope::TaskContextScope(std::shared_ptr<const TaskContext> context)
    : previous_(std::exchange(slot(), std::move(context))) {}

TaskContextScope::~TaskContextScope() {
  slot() = std::move(previous_);
}

Executor executorWithContext(Executor inner, std::shared_ptr<const TaskContext> context) {
  return ContextExecutor<Executor>(std::move(inner), std::move(context));
}

}  // namespace vorlane
