#include "devcloud/Faults.h"

#include "base/Identifiers.h"
#include "base/Text.h"
#include "base/tasks/Timing.h"
#include "devcloud/Control.h"
#include "devcloud/Fields.h"
#include "devcloud/Router.h"

#include <algorithm>
#include <array>

namespace vorlane::devcloud {
namespace {

constexpr std::int64_t longestDelay = 600'000;
constexpr std::int64_t longestSleep = 600'000;
constexpr std::string_view garbageBytes = "\xFF\xFE{\"success\":tru\x01<html>\x80";

struct CutName {
  std::string_view name;
  FaultCut cut;
};

constexpr std::array cutNames{CutName{"none", FaultCut::none}, CutName{"before", FaultCut::before},
                              CutName{"after", FaultCut::after}, CutName{"body", FaultCut::body}};

FaultCut cutNamed(std::string_view name) {
  const auto found = std::ranges::find(cutNames, name, &CutName::name);
  if (found == cutNames.end()) throw FieldFailure("cut", "must be \"before\", \"after\" or \"body\"");
  return found->cut;
}

bool isHeaderText(std::string_view text) {
  return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) >= 0x20 && c != 0x7F; });
}

Headers headersFromJSON(const JSONMap& map) {
  Headers headers;
  for (const auto& entry : map) {
    const std::string name(entry.key());
    const boost::json::string* value = entry.value().if_string();
    if (!value || !isHeaderText(*value)) throw FieldFailure("headers." + name, "must be one line of text");
    if (name.empty() || !isHeaderText(name) || name.find_first_of(": ") != std::string::npos) {
      throw FieldFailure("headers", "has a name that no header can have");
    }
    headers.emplace_back(name, std::string(*value));
  }
  return headers;
}

}  // namespace

Response Fault::answer() const {
  Response response;
  response.status = status.value_or(200);
  response.headers = headers;
  response.body = garbage ? std::string(garbageBytes) : body.value_or("");
  return response;
}

JSONMap Fault::json() const {
  JSONMap map{{"id", id},
              {"path", path},
              {"match", prefix ? "prefix" : "exact"},
              {"times", times},
              {"garbage", garbage},
              {"effect", effect},
              {"cut", std::ranges::find(cutNames, cut, &CutName::cut)->name},
              {"delayMs", delay.count()},
              {"hold", hold}};
  if (!method.empty()) map["method"] = method;
  if (status) map["status"] = *status;
  if (body) map["body"] = validUTF8(*body);
  return map;
}

Fault redirectFault(std::string path, std::string location, int status) {
  Fault fault;
  fault.path = std::move(path);
  fault.status = status;
  fault.headers.emplace_back("Location", std::move(location));
  return fault;
}

Fault answerFault(std::string path, const JSONValue& body, int status) {
  Fault fault;
  fault.path = std::move(path);
  fault.status = status;
  fault.body = writeJSON(body);
  return fault;
}

namespace {

/// The answer that the fault orders, in whichever form.
void readAnswer(Fields& fields, Fault& fault) {
  if (const auto status = fields.integer("status", 200, 599)) fault.status = static_cast<int>(*status);
  if (const JSONMap* headers = fields.object("headers")) fault.headers = headersFromJSON(*headers);
  fault.body = fields.string("body");
  if (const JSONValue* json = fields.value("json")) {
    if (fault.body) throw FieldFailure("json", "stands beside \"body\"");
    fault.body = writeJSON(*json);
  }
  if (const auto location = fields.string("redirect")) {
    if (!isHeaderText(*location)) throw FieldFailure("redirect", "must be one line of text");
    if (!fault.status) fault.status = 302;
    if (*fault.status / 100 != 3) throw FieldFailure("status", "does not redirect");
    fault.headers.emplace_back("Location", *location);
  }
  fault.garbage = fields.boolean("garbage").value_or(false);
  if (fault.garbage && fault.body) throw FieldFailure("garbage", "stands beside \"body\" or \"json\"");
}

}  // namespace

Fault faultFromJSON(const JSONMap& map) {
  Fields fields(map);
  Fault fault;
  fault.path = fields.requiredString("path");
  if (!fault.path.starts_with('/')) throw FieldFailure("path", "must begin with \"/\"");
  const std::string match = fields.string("match").value_or("exact");
  if (match != "exact" && match != "prefix") {
    throw FieldFailure("match", "must be \"exact\" or \"prefix\"");
  }
  fault.prefix = match == "prefix";
  fault.method = fields.string("method").value_or("");
  fault.times = fields.integer("times", 1, 1'000'000).value_or(1);
  readAnswer(fields, fault);
  fault.effect = fields.boolean("effect").value_or(false);
  fault.cut = cutNamed(fields.string("cut").value_or("none"));
  fault.delay = std::chrono::milliseconds(fields.integer("delayMs", 0, longestDelay).value_or(0));
  fault.hold = fields.boolean("hold").value_or(false);
  fields.refuseOthers();
  if (!fault.headers.empty() && !fault.replacesAnswer()) {
    throw FieldFailure("headers", "needs a \"status\" or a \"body\"");
  }
  if (fault.effect && (!fault.replacesAnswer() || fault.cut == FaultCut::before)) {
    throw FieldFailure("effect", "needs an answer that takes the real one's place");
  }
  if (!fault.replacesAnswer() && fault.cut == FaultCut::none && fault.delay.count() == 0 && !fault.hold) {
    throw FieldFailure("status", "is missing, and so is everything else that could go wrong");
  }
  return fault;
}

void Faults::addRoutes(Router& router) {
  router.add("GET", "/__control/faults", Scheme::both, [this](const Request&) {
    JSONArray faults;
    for (const Fault& fault : faults_) faults.push_back(fault.json());
    return Response::json(200, {{"faults", std::move(faults)}});
  });
  router.add("POST", "/__control/faults", Scheme::both, [this](const Request& request) {
    return Response::json(200, {{"id", add(faultFromJSON(bodyObject(request)))}});
  });
  router.add("DELETE", "/__control/faults", Scheme::both, [this](const Request&) {
    clear();
    return done();
  });
  router.add("DELETE", "/__control/faults/{id}", Scheme::both, [this](const Request& request) {
    const auto id = decimalInteger(request.parameter("id"));
    return doneOr404(id && remove(*id), "there is no such fault");
  });
  router.add("POST", "/__control/faults/release", Scheme::both, [this](const Request&) {
    release();
    return done();
  });
  router.add("GET", "/__control/sleep", Scheme::both, [](Request request) -> Task<Response> {
    const std::int64_t duration = integerQuery(request, "ms", 0, longestSleep);
    co_await sleepFor(std::chrono::milliseconds(duration));
    co_return Response::json(200, {{"slept", duration}});
  });
}

std::int64_t Faults::add(Fault fault) {
  fault.id = nextID_++;
  faults_.push_back(std::move(fault));
  return faults_.back().id;
}

std::optional<Fault> Faults::take(const Request& request) {
  const auto found = std::ranges::find_if(faults_, [&](const Fault& fault) {
    const bool here = fault.prefix ? request.path.starts_with(fault.path) : request.path == fault.path;
    return here && (fault.method.empty() || fault.method == request.method);
  });
  if (found == faults_.end()) return std::nullopt;
  Fault taken = *found;
  if (--found->times <= 0) faults_.erase(found);
  return taken;
}

bool Faults::remove(std::int64_t id) {
  return std::erase_if(faults_, [&](const Fault& fault) { return fault.id == id; }) > 0;
}

void Faults::clear() {
  faults_.clear();
  release();
}

Task<> Faults::held() const {
  auto wait = [released = released_]() -> Task<bool> {
    co_await released->wait();
    co_return true;
  };
  co_await withTimeout<bool>(std::chrono::minutes(30), "a held request", std::move(wait));
}

void Faults::release() {
  std::exchange(released_, std::make_shared<Event>())->set();
}

}  // namespace vorlane::devcloud
