#pragma once

#include "base/tasks/BlockingThread.h"
#include "base/tasks/Event.h"
#include "base/tasks/Task.h"

#include <exception>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

namespace vorlane {

/// Runs `work` on a thread for what blocks and waits for its result without holding one. When
/// the task is cancelled it stops waiting; the work then runs to its end for nobody. Throws what
/// `work` throws, and std::system_error when there is no thread. The thread has to live until
/// the work is queued.
template <class Work>
auto onThread(std::shared_ptr<BlockingThread> thread, Work work) -> Task<std::invoke_result_t<Work&>> {
  struct Piece {
    explicit Piece(Work given) : work(std::move(given)) {}
    Work work;
    Event ended;
    std::optional<std::invoke_result_t<Work&>> result;
    std::exception_ptr failure;
  };
  const auto piece = std::make_shared<Piece>(std::move(work));
  thread->post([piece] {
    try {
      piece->result.emplace(piece->work());
    } catch (...) {
      piece->failure = std::current_exception();
    }
    piece->ended.set();
  });
  co_await piece->ended.wait();
  if (piece->failure) std::rethrow_exception(piece->failure);
  co_return std::move(*piece->result);
}

}  // namespace vorlane
