#include "devcloud/Services.h"

#include "base/JSONArguments.h"
#include "devcloud/AILists.h"
#include "devcloud/Accounts.h"
#include "devcloud/Attachments.h"
#include "devcloud/Faults.h"
#include "devcloud/Identity.h"
#include "devcloud/People.h"
#include "devcloud/Projects.h"
#include "devcloud/RequestLog.h"
#include "devcloud/Sheets.h"

#include <type_traits>

namespace vorlane::devcloud {
namespace {

template <class S>
std::unique_ptr<Service> make(const Services& services) {
  if constexpr (std::is_constructible_v<S, const Services&>) {
    return std::make_unique<S>(services);
  } else {
    return std::make_unique<S>();
  }
}

/// Each may ask for those before it.
constexpr std::unique_ptr<Service> (*makers[])(const Services&) = {
    make<RequestLog>, make<Faults>,   make<People>,      make<Identity>, make<Accounts>,
    make<Sheets>,     make<Projects>, make<Attachments>, make<AILists>,
};

}  // namespace

Services::Services(CloudSettings settings, Recorder record)
    : settings_(std::move(settings)), record_(std::move(record)) {
  for (const auto& maker : makers) all_.push_back(maker(*this));
}

ChangeRecorder Services::recorder(std::string_view stateName) const {
  return [this, stateName](JSONValue change) { record_(stateName, std::move(change)); };
}

void Services::addRoutes(Router& router) const {
  for (const auto& service : all_) service->addRoutes(router);
}

JSONMap Services::state() const {
  JSONMap state;
  for (const auto& service : all_) {
    if (!service->stateName().empty()) state[service->stateName()] = service->state();
  }
  return state;
}

void Services::restore(const JSONMap& state) const {
  for (const auto& service : all_) {
    if (service->stateName().empty()) continue;
    if (const auto* part = json::find(state, service->stateName())) service->restore(*part);
  }
}

}  // namespace vorlane::devcloud
