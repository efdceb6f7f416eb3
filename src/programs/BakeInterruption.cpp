#include "programs/BakeInterruption.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

namespace vorlane::bake {
namespace {

sigset_t watched() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  // Sent to itself, to be woken at the end.
  sigaddset(&set, SIGUSR1);
  return set;
}

}  // namespace

Interruption::Interruption() {
  const auto set = watched();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  thread_ = std::thread([this, set] {
    for (;;) {
      int signal = 0;
      sigwait(&set, &signal);
      if (over_) return;
      if (signal == SIGUSR1) continue;
      if (source_.stop_requested()) ::_exit(130);
      source_.request_stop();
    }
  });
}

Interruption::~Interruption() {
  over_ = true;
  pthread_kill(thread_.native_handle(), SIGUSR1);
  thread_.join();
}

}  // namespace vorlane::bake
