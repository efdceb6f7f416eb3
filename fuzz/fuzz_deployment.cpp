// Whatever a deployment file holds, it is either taken or refused with a Failure,
// and what is taken has no base with a slash at its end.
#include "cloud/Deployment.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  try {
    const auto deployment = vorlane::Deployment::parse(text);
    for (const auto& base : {deployment.ledgerlyBase, deployment.scenewardBase, deployment.renderWebBase,
                             deployment.updatesHost}) {
      if (base && base->ends_with('/')) std::abort();
    }
  } catch (const vorlane::Failure& failure) {
    if (failure.description().empty()) std::abort();
  }
  return 0;
}
