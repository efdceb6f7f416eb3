#include "store/EditedRow.h"

#include "store/SnapshotCodec.h"

namespace vorlane {

void OpenedRow::read(std::string title, std::string_view data) {
  memory_.emplace(SnapshotCodec::blockSize(data));
  storedTitle = std::move(title);
  row_.emplace(EditedRow{storedTitle, SnapshotCodec::decode(data, &*memory_)});
}

}  // namespace vorlane
