#pragma once

#include "base/JSON.h"
#include "platform/UserDefaults.h"
#include "platform/linux/FileStamp.h"

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

namespace vorlane {

/// User defaults as one JSON object in FOLDER/DOMAIN.json. A read costs one
/// stat(2), and several in one Moment cost one: the file is read again only when its stamp has changed.
/// Writers of all processes take turns by a lock file beside it.
class JSONFileDefaults : public UserDefaults {
 public:
  JSONFileDefaults(const std::string& folder, const std::string& domain);

  std::optional<DefaultsValue> value(std::string_view key) const override;
  void apply(std::vector<Change> changes) override;

 private:
  void refresh(int statError, const struct stat& status) const;
  JSONMap mapForWriting() const;

  const std::string folder_;
  const std::string path_;

  /// One writer of this process at a time. Apart from the readers' lock, since a
  /// writer may wait for another process and for the disk.
  std::mutex writing_;
  mutable std::mutex lock_;
  // What the file held when its stamp was `stamp_`; no stamp, no file.
  mutable JSONMap map_;
  mutable std::optional<FileStamp> stamp_;
  /// The moment in which that was last compared with the file.
  mutable std::uint64_t moment_ = 0;
};

}  // namespace vorlane
