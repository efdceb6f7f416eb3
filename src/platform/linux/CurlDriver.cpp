#include "platform/linux/CurlDriver.h"

#include <curl/curl.h>
#include <pthread.h>
#include <boost/asio/error.hpp>
#include <boost/system/system_error.hpp>

#include <algorithm>
#include <csignal>
#include <limits>

namespace vorlane {
namespace {

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

CurlDriver::CurlDriver() : multi_(makeMulti()) {}

void CurlDriver::FreeMulti::operator()(void* multi) const {
  curl_multi_cleanup(multi);
}

CurlDriver::~CurlDriver() {
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
    // Returns early for libcurl's own timers; with nothing under way only a
    // command ends it.
    curl_multi_poll(multi_.get(), nullptr, 0, std::numeric_limits<int>::max(), nullptr);
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
