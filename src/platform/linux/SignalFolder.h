#pragma once

#include "base/FileDescriptor.h"

#include <map>
#include <string>
#include <vector>

namespace vorlane {

/// The folder that carries signals between processes, and the watch on it: a
/// post is the opening and closing of a file named after the signal. One thread at
/// a time.
class SignalFolder {
 public:
  /// Throws Failure naming the folder when it cannot be made or watched.
  explicit SignalFolder(std::string path);

  /// What the watch has reported since the last look.
  struct Events {
    std::vector<std::string> files;  ///< names, in the order in which they were closed
    /// Events were lost, or the folder was away: any signal may have been posted.
    bool anything = false;
  };

  /// Readable when there are events. Belongs to the folder.
  int watchDescriptor() const { return inotify_.get(); }
  /// Never blocks.
  Events takeEvents();
  /// Posts, and adds to `events` what others have posted up to then, also when it
  /// throws: the event of our own post is not among it. Makes and watches the folder
  /// anew when it has gone. Throws Failure when the file cannot be written.
  void post(const std::string& file, Events& events);
  /// Watches the folder again when it had gone; true when it had.
  bool restore();

 private:
  void watch();
  void readInto(Events& events);
  int touch(const std::string& file) const;

  const std::string path_;
  FileDescriptor inotify_;
  int watch_ = -1;
  bool loggedLoss_ = false;
};

}  // namespace vorlane
