#include "tools/ledgerly/LedgerlyTool.h"

#include <utility>

namespace vorlane {

DomainFailure ledgerlyFailure(long code, std::string description) {
  return {"ledgerly", code, std::move(description)};
}

DomainFailure sheetNotFound(const std::string& id) {
  return LedgerlyQueries::sheetNotFound(id);
}

}  // namespace vorlane
