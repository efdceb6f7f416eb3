#pragma once

#include "mcp/ToolDefinition.h"
#include "tools/ledgerly/LedgerlyAttachmentClient.h"

#include <vector>

namespace vorlane {

/// The tools that find, read and search the files and links on a person's items, through the
/// cloud and
/// nothing else: they touch no local sheet.
struct LedgerlyAttachmentTools {
  static std::vector<ToolDefinition> tools(const LedgerlyAttachmentClient& client);
};

}  // namespace vorlane
