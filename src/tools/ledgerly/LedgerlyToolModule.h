#pragma once

#include "mcp/ToolDefinition.h"
#include "store/LedgerlyQueries.h"
#include "tools/ledgerly/LedgerlyAIListClient.h"
#include "tools/ledgerly/LedgerlyAttachmentClient.h"
#include "tools/ledgerly/LedgerlyImportTool.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace vorlane {

/// A set of sheet tools, made over the sheets.
using LedgerlyToolSet = std::function<std::vector<ToolDefinition>(const LedgerlyQueries& queries)>;

/// The sheet tools, namespace "ledgerly": those that read, those that write items,
/// those that write categories, the import, and then the further sets in their order.
class LedgerlyToolModule : public ToolModule {
 public:
  /// `filing`: how imported lists get into the person's cloud archive, if they do.
  explicit LedgerlyToolModule(LedgerlyQueries queries, std::vector<LedgerlyToolSet> furtherSets = {},
                              LedgerlyImportTool::Filing filing = {});
  /// With the tools of the cloud: those of the attachments and those of the archive, each
  /// where there is a client for it. Imported lists go into the archive on `filing`.
  LedgerlyToolModule(LedgerlyQueries queries, std::optional<LedgerlyAttachmentClient> attachmentClient,
                     std::optional<LedgerlyAIListClient> aiListClient, Executor filing);

  std::string toolNamespace() const override { return "ledgerly"; }
  std::vector<ToolDefinition> tools() const override;

 private:
  LedgerlyQueries queries_;
  std::vector<LedgerlyToolSet> sets_;
};

}  // namespace vorlane
