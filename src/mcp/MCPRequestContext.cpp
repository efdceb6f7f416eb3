#include "mcp/MCPRequestContext.h"

#include "base/tasks/AwaitOn.h"
#include "base/tasks/Moment.h"
#include "base/tasks/TaskContext.h"

#include <boost/asio/cancellation_state.hpp>
#include <boost/asio/this_coro.hpp>

#include <atomic>
#include <memory>
#include <utility>

namespace vorlane::MCPRequestContext {
namespace {

namespace asio = boost::asio;

struct CallContext : TaskContext {
  explicit CallContext(std::shared_ptr<const std::atomic<bool>> given) : abandoned(std::move(given)) {}
  explicit CallContext(AccountFence held) : fence(std::move(held)), taken(true) {}
  /// Gives the context of a transport's task its fence, once. False when it has one.
  bool take(AccountFence held) const {
    if (taken.exchange(true)) return false;
    fence = std::move(held);
    return true;
  }

  /// Written before the handler starts, and never after.
  mutable AccountFence fence;
  mutable std::atomic<bool> taken{false};
  const std::shared_ptr<const std::atomic<bool>> abandoned;
  /// Set when the call's task is asked to end. A coroutine could ask its own
  /// state, but a plain function and a child on another thread could not.
  mutable std::atomic<bool> cancelled{false};
};

const CallContext* current() {
  return dynamic_cast<const CallContext*>(currentTaskContext().get());
}

const char* text(Failure::Case kind) {
  return kind == Failure::Case::accountChanged
             ? "The account changed during this request. Try again from the current account."
             : "Sign in through Vorlane before using this tool.";
}

}  // namespace

Failure::Failure(Case kind) : vorlane::Failure(text(kind)), kind_(kind) {}

AccountFence currentFence() {
  const auto* context = current();
  return context == nullptr ? AccountFence() : context->fence;
}

void checkCurrentAccount() {
  const auto* context = current();
  if (context == nullptr) return;
  if (context->cancelled) throw CancelledFailure();
  if (context->fence && !context->fence()) throw Failure(Failure::Case::accountChanged);
}

void startCall(const Executor& executor, std::string name, TaskBody body,
               std::shared_ptr<const std::atomic<bool>> abandoned) {
  spawnHere(executor, std::make_shared<const CallContext>(std::move(abandoned)), std::move(name),
            std::move(body));
}

bool isAnswerWanted() {
  const auto* context = current();
  return context == nullptr || !context->abandoned || !*context->abandoned;
}

namespace {

Task<JSONMap> checked(std::function<Task<JSONMap>()> handler) {
  checkCurrentAccount();
  // The handler may take its time, and its effects are seen by others.
  Moment::end();
  auto result = co_await handler();
  const Moment afterwards;
  checkCurrentAccount();
  co_return result;
}

}  // namespace

Task<JSONMap> run(AccountFence fence, std::function<Task<JSONMap>()> handler) {
  if (const auto* own = current(); own != nullptr && own->take(fence)) {
    co_return co_await checked(std::move(handler));
  }
  auto context = std::make_shared<const CallContext>(std::move(fence));
  const auto executor = executorWithContext(co_await asio::this_coro::executor, context);
  co_return co_await awaitOn(executor, [context, handler = std::move(handler)]() -> Task<JSONMap> {
    if ((co_await asio::this_coro::cancellation_state).cancelled() != asio::cancellation_type::none) {
      context->cancelled = true;
    }
    co_await asio::this_coro::reset_cancellation_state([context](asio::cancellation_type type) {
      const auto heeded = type & asio::cancellation_type::terminal;
      if (heeded != asio::cancellation_type::none) context->cancelled = true;
      return heeded;
    });
    co_return co_await checked(handler);
  });
}

}  // namespace vorlane::MCPRequestContext
