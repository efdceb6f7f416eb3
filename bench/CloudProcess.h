#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>

namespace vorlane::bench {

/// The cloud in a process of its own, as everywhere else: its heap and its threads are not
/// the agent's. Made before this process has threads.
class CloudProcess {
 public:
  /// Who is signed in there.
  static constexpr char owner[] = "auth0|bench";

  explicit CloudProcess(const std::filesystem::path& folder);
  ~CloudProcess();
  CloudProcess(const CloudProcess&) = delete;
  CloudProcess& operator=(const CloudProcess&) = delete;

  /// Lets it forget the requests that it has recorded, so that it serves everybody alike.
  void clear() { order('c'); }
  void removeDocuments() { order('r'); }

  std::string base, token, caFile;

 private:
  void order(char command);
  static void serve(const std::filesystem::path& folder, int commands, int answers);

  pid_t child_ = 0;
  int commands_ = -1, answers_ = -1;
};

}  // namespace vorlane::bench
