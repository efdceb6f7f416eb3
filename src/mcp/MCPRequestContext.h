#pragma once

#include "base/Failure.h"
#include "base/JSON.h"
#include "base/tasks/Spawn.h"
#include "base/tasks/Task.h"

#include <atomic>
#include <functional>
#include <memory>
#include <string>

namespace vorlane {

/// Answers whether the account that a call began for is still the one in charge.
/// Callable from any thread.
using AccountFence = std::function<bool()>;

/// What a tool handler can ask about the call that it runs for. The fence
/// follows the handler into what it spawns on its own executor and into hops by
/// `onExecutor`; other calls on the same threads never see it.
namespace MCPRequestContext {

class Failure : public vorlane::Failure {
 public:
  enum class Case { accountChanged, signedOut };
  explicit Failure(Case kind);
  Case kind() const noexcept { return kind_; }

 private:
  Case kind_;
};

/// The fence of the call that this piece of work belongs to, empty outside a handler.
AccountFence currentFence();

/// Throws CancelledFailure when the call was cancelled, then `accountChanged`
/// when the fence no longer holds. Handlers call it around steps that commit to a
/// remote service. Does nothing outside a handler.
void checkCurrentAccount();

/// Starts the task of one request, which nobody cancels, on this thread; what comes after its
/// first wait runs on `executor`. `run` puts the fence into the context that the task has from
/// here. Elsewhere it starts a child for it, which costs a small call a tenth of its time.
/// `abandoned` becomes true when nobody is left to take the answer.
void startCall(const Executor& executor, std::string name, TaskBody body,
               std::shared_ptr<const std::atomic<bool>> abandoned = nullptr);

/// Whether somebody may still take the answer of the call that this piece of work belongs to.
bool isAnswerWanted();

/// Runs `handler` on the caller's executor with `fence` in force: checks the call
/// as checkCurrentAccount does, awaits the handler, and checks again, so that a
/// result for another account is thrown away.
Task<JSONMap> run(AccountFence fence, std::function<Task<JSONMap>()> handler);

}  // namespace MCPRequestContext
}  // namespace vorlane
