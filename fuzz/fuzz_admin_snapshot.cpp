// Any body: refused by a failure, or a snapshot whose answer can be asked for.
// One that has run out allows nothing.
#include "access/SuiteAdminSnapshot.h"
#include "base/Failure.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace vorlane;
  try {
    const auto snapshot =
        SuiteAdminSnapshot::decode(std::string_view(reinterpret_cast<const char*>(data), size));
    const AdminAccessRequirement call{"sceneward", "library", "edit", {{"projectId", "p1"}}, false};
    const AdminAccessRequirement listing{"sceneward", "library", "edit", {}, true};
    const auto present = *dateFromISO8601("2026-03-01T12:00:00Z");
    // Whatever a call may do, its tool is listed too.
    if (snapshot.allows(call, present) && !snapshot.allows(listing, present)) std::abort();
    if (snapshot.allows(listing, *dateFromISO8601("9999-12-31T23:59:59.999999Z"))) {
      const auto end = dateFromISO8601(snapshot.validUntil);
      if (!end || *end <= *dateFromISO8601("9999-12-31T23:59:59.999999Z")) std::abort();
    }
  } catch (const Failure&) {
  }
  return 0;
}
