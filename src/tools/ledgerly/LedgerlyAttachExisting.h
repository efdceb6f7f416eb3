#pragma once

#include "mcp/ToolDefinition.h"
#include "store/LedgerlyQueries.h"
#include "tools/ledgerly/LedgerlyAttachmentClient.h"

#include <vector>

namespace vorlane {

/// The tool that copies attachments onto the items of one sheet. The copying is done in the
/// cloud: the local sheet has to be in step with it before, and is refreshed after, or its
/// next push would overwrite what was copied.
struct LedgerlyAttachExisting {
  static std::vector<ToolDefinition> tools(const LedgerlyQueries& queries,
                                           const LedgerlyAttachmentClient& client);
};

}  // namespace vorlane
