#include "store/EditedRow.h"

#include "store/SnapshotCodec.h"

namespace vorlane {

void OpenedRow::read(std::string title, std::string_view data) {
  // A tree takes two to three times its text; a sheet that is small wants no large block.
  memory_.emplace(data.size() * 5 / 2);
  storedTitle = std::move(title);
  row_.emplace(EditedRow{storedTitle, SnapshotCodec::decode(data, &*memory_)});
}

}  // namespace vorlane
