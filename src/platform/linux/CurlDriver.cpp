#include "platform/linux/CurlDriver.h"

#include <curl/curl.h>
#include <malloc.h>
#include <pthread.h>
#include <boost/asio/error.hpp>
#include <boost/system/system_error.hpp>

#include <algorithm>
#include <csignal>
#include <limits>
#include <utility>

namespace vorlane {
namespace {

/// For the bodies of all answers together, in bytes.
constexpr std::size_t memoryLimit = std::size_t{128} << 20;
/// From the end of long answers to the return of their memory to the system: what was made of
/// them has gone by then.
constexpr std::chrono::seconds trimDelay{3};
/// Idle connections kept for reuse.
constexpr long keptConnections = 16;

CURLM* makeMulti() {
  static const CURLcode global = curl_global_init(CURL_GLOBAL_DEFAULT);
  CURLM* const multi = global == CURLE_OK ? curl_multi_init() : nullptr;
  if (multi == nullptr) throw Failure("The network library cannot be started.");
  curl_multi_setopt(multi, CURLMOPT_MAXCONNECTS, keptConnections);
  return multi;
}

std::exception_ptr failure(const char* description) {
  return std::make_exception_ptr(TransportFailure(CURLE_ABORTED_BY_CALLBACK, description));
}

}  // namespace

CurlDriver::CurlDriver() : multi_(makeMulti()), memory_(std::make_shared<AnswerMemory>(memoryLimit)) {
  memory_->onEmptied([this] {
    emptied_ = true;
    curl_multi_wakeup(multi_.get());
  });
}

void CurlDriver::FreeMulti::operator()(void* multi) const {
  curl_multi_cleanup(multi);
}

CurlDriver::~CurlDriver() {
  memory_->onEmptied(nullptr);
  {
    const std::scoped_lock hold(lock_);
    ending_ = true;
  }
  curl_multi_wakeup(multi_.get());
  if (thread_.joinable()) thread_.join();
}

void CurlDriver::start(std::shared_ptr<CurlTransfer> transfer) {
  give({.transfer = std::move(transfer), .cancels = false});
}

void CurlDriver::cancel(std::shared_ptr<CurlTransfer> transfer) {
  give({.transfer = std::move(transfer), .cancels = true});
}

void CurlDriver::give(Command command) {
  {
    const std::scoped_lock hold(lock_);
    if (!thread_.joinable()) {
      // Signals of the process are not for this thread, SIGPIPE of a connection
      // that the peer has closed least of all.
      sigset_t all;
      sigset_t before;
      sigfillset(&all);
      pthread_sigmask(SIG_SETMASK, &all, &before);
      try {
        thread_ = std::thread([this] { run(); });
      } catch (const std::system_error&) {
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        return command.transfer->fail(failure("No thread can be made for the request."));
      }
      pthread_sigmask(SIG_SETMASK, &before, nullptr);
    }
    commands_.push_back(std::move(command));
  }
  curl_multi_wakeup(multi_.get());
}

void CurlDriver::run() {
  pthread_setname_np(pthread_self(), "vorlane.url");
  while (takeCommands()) {
    int active = 0;
    curl_multi_perform(multi_.get(), &active);
    collectEnded();
    collectGivenUp();
    // Returns early for libcurl's own timers; with nothing under way only a
    // command ends it.
    curl_multi_poll(multi_.get(), nullptr, 0, patience(), nullptr);
  }
  while (!running_.empty()) {
    remove(running_.back()->handle())->fail(failure("The request was ended with the session."));
  }
}

/// False when the driver ends; what was still to be started has then failed.
bool CurlDriver::takeCommands() {
  std::vector<Command> commands;
  bool ending = false;
  {
    const std::scoped_lock hold(lock_);
    commands.swap(commands_);
    ending = ending_;
  }
  for (const auto& [transfer, cancels] : commands) {
    if (cancels) {
      transfer->fail(
          std::make_exception_ptr(boost::system::system_error(boost::asio::error::operation_aborted)));
      remove(transfer->handle());
    } else if (ending) {
      transfer->fail(failure("The request was ended with the session."));
    } else {
      begin(transfer);
    }
  }
  return !ending;
}

void CurlDriver::begin(const std::shared_ptr<CurlTransfer>& transfer) {
  transfer->holdIn(*memory_,
                   [this](CurlTransfer& growing, std::size_t bytes) { return makeRoom(growing, bytes); });
  if (curl_multi_add_handle(multi_.get(), transfer->handle()) != CURLM_OK) {
    return transfer->fail(failure("The request cannot be started."));
  }
  running_.push_back(transfer);
}

/// Takes a transfer out; null when it is not under way.
std::shared_ptr<CurlTransfer> CurlDriver::remove(void* handle) {
  const auto found =
      std::ranges::find(running_, handle, [](const auto& transfer) { return transfer->handle(); });
  if (found == running_.end()) return nullptr;
  curl_multi_remove_handle(multi_.get(), handle);
  std::swap(*found, running_.back());
  auto transfer = std::move(running_.back());
  running_.pop_back();
  return transfer;
}

/// Makes a body as large as that, at the cost of longer ones. Inside libcurl, where no other
/// transfer can be taken out.
bool CurlDriver::makeRoom(CurlTransfer& transfer, std::size_t bytes) {
  while (!transfer.growTo(bytes)) {
    CurlTransfer* longest = nullptr;
    for (const auto& other : running_) {
      if (!other->isGivenUp() && (longest == nullptr || other->held() > longest->held()))
        longest = other.get();
    }
    if (longest == nullptr || longest->held() <= transfer.held()) return false;
    longest->giveUp();
    anyGivenUp_ = true;
  }
  return true;
}

void CurlDriver::collectGivenUp() {
  if (!std::exchange(anyGivenUp_, false)) return;
  const auto all = running_;
  for (const auto& transfer : all) {
    if (transfer->isGivenUp() && remove(transfer->handle())) transfer->finish(CURLE_WRITE_ERROR);
  }
}

/// How long there is nothing to do, in milliseconds. Memory that answers left is given back to
/// the system before.
int CurlDriver::patience() {
  using Clock = std::chrono::steady_clock;
  if (emptied_.exchange(false)) trimAt_ = Clock::now() + trimDelay;
  if (!trimAt_) return std::numeric_limits<int>::max();
  const auto left = *trimAt_ - Clock::now();
  if (left > Clock::duration::zero()) {
    return static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(left).count());
  }
  trimAt_.reset();
  ::malloc_trim(0);
  return std::numeric_limits<int>::max();
}

void CurlDriver::collectEnded() {
  int left = 0;
  while (const CURLMsg* message = curl_multi_info_read(multi_.get(), &left)) {
    if (message->msg != CURLMSG_DONE) continue;
    // The message is gone once its handle has been taken out.
    const CURLcode result = message->data.result;
    if (const auto transfer = remove(message->easy_handle)) transfer->finish(result);
  }
}

}  // namespace vorlane
