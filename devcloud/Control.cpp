#include "devcloud/Control.h"

#include "base/Identifiers.h"
#include "base/Text.h"
#include "base/tasks/Timing.h"
#include "devcloud/AILists.h"
#include "devcloud/Attachments.h"
#include "devcloud/Faults.h"
#include "devcloud/Fields.h"
#include "devcloud/Identity.h"
#include "devcloud/People.h"
#include "devcloud/Projects.h"
#include "devcloud/RequestLog.h"
#include "devcloud/Router.h"
#include "devcloud/Sheets.h"

#include <fmt/format.h>

namespace vorlane::devcloud {
namespace {

constexpr std::int64_t longestWait = 600'000;

Response done() {
  return Response::json(200, {{"success", true}});
}

Response doneOr404(bool found, std::string_view what) {
  if (!found) throw apiError(404, what);
  return done();
}

std::int64_t integerQuery(const Request& request, std::string_view name, std::int64_t fallback,
                          std::int64_t most) {
  const auto text = request.queryValue(name);
  if (!text) return fallback;
  const auto number = decimalInteger(*text);
  if (!number || *number < 0 || *number > most) {
    throw FieldFailure(std::string(name), fmt::format("must be a whole number from 0 to {}", most));
  }
  return *number;
}

const Person& personIn(const People& people, const Request& request) {
  const Person* person = people.find(request.parameter("sub"));
  if (!person) throw apiError(404, fmt::format("there is no person \"{}\"", request.parameter("sub")));
  return *person;
}

void addPeople(Router& router, Controlled to) {
  router.add("GET", "/__control/people", Scheme::both,
             [to](const Request&) { return Response::json(200, {{"people", to.people.state()}}); });
  router.add("POST", "/__control/people", Scheme::both, [to](const Request& request) {
    return Response::json(200, to.people.update(bodyObject(request)).json());
  });
  router.add("DELETE", "/__control/people/{sub}", Scheme::both, [to](const Request& request) {
    removePerson(to, std::string(personIn(to.people, request).sub));
    return done();
  });
  router.add("POST", "/__control/tokens", Scheme::both, [to](const Request& request) {
    const JSONMap body = bodyObject(request);
    Fields fields(body);
    const std::string sub = fields.requiredString("sub");
    const auto lifetime = fields.integer("lifetime", -1'000'000'000, 1'000'000'000);
    fields.refuseOthers();
    if (!to.people.find(sub)) throw FieldFailure("sub", "names nobody");
    return Response::json(200, to.identity.issue(sub, lifetime).storedForm());
  });
  router.add("DELETE", "/__control/tokens/{sub}", Scheme::both, [to](const Request& request) {
    to.identity.revoke(personIn(to.people, request).sub);
    return done();
  });
}

void addSheets(Router& router, Controlled to) {
  router.add("GET", "/__control/sheets/{sub}", Scheme::both, [to](const Request& request) {
    JSONArray sheets;
    for (const Sheet& sheet : to.sheets.ownedBy(personIn(to.people, request).sub)) {
      JSONMap map = sheet.json();
      map["updates"] = sheet.updates;
      sheets.push_back(std::move(map));
    }
    return Response::json(200, {{"sheets", std::move(sheets)}});
  });
  router.add("POST", "/__control/sheets/{sub}", Scheme::both, [to](const Request& request) {
    const Person& person = personIn(to.people, request);
    return Response::json(200, to.sheets.put(sheetFromJSON(bodyObject(request), person.sub)).json());
  });
  router.add("DELETE", "/__control/sheets/{sub}/{id}", Scheme::both, [to](const Request& request) {
    const auto id = decimalInteger(request.parameter("id"));
    return doneOr404(id && to.sheets.remove(personIn(to.people, request).sub, *id), "there is no such sheet");
  });
}

void addProjects(Router& router, Controlled to) {
  router.add("GET", "/__control/projects/{sub}", Scheme::both, [to](const Request& request) {
    JSONArray projects;
    for (const Project& project : to.projects.ownedBy(personIn(to.people, request).sub)) {
      projects.push_back(project.json());
    }
    return Response::json(200, {{"projects", std::move(projects)}});
  });
  router.add("POST", "/__control/projects/{sub}", Scheme::both, [to](const Request& request) {
    const Person& person = personIn(to.people, request);
    return Response::json(200, to.projects.put(projectFromJSON(bodyObject(request), person.sub)).json());
  });
  router.add("DELETE", "/__control/projects/{sub}/{id}", Scheme::both, [to](const Request& request) {
    return doneOr404(to.projects.remove(personIn(to.people, request).sub, request.parameter("id")),
                     "there is no such project");
  });
}

void addAssistantThings(Router& router, Controlled to) {
  router.add("GET", "/__control/attachments/{sub}", Scheme::both, [to](const Request& request) {
    JSONArray attachments;
    for (const Attachment& each : to.attachments.ownedBy(personIn(to.people, request).sub)) {
      attachments.push_back(each.json());
    }
    return Response::json(200, {{"attachments", std::move(attachments)}});
  });
  router.add("POST", "/__control/attachments/{sub}", Scheme::both, [to](const Request& request) {
    const Person& person = personIn(to.people, request);
    return Response::json(200,
                          to.attachments.put(attachmentFromJSON(bodyObject(request), person.sub)).json());
  });
  router.add("GET", "/__control/ai-lists/{sub}", Scheme::both, [to](const Request& request) {
    JSONArray lists;
    for (const AIList& list : to.lists.ownedBy(personIn(to.people, request).sub)) {
      lists.push_back(list.json());
    }
    return Response::json(200, {{"lists", std::move(lists)}});
  });
  router.add("POST", "/__control/ai-lists/{sub}", Scheme::both, [to](const Request& request) {
    const Person& person = personIn(to.people, request);
    return Response::json(200, to.lists.add(aiListFromJSON(bodyObject(request), person.sub)).json());
  });
}

Task<Response> recordedRequests(RequestLog& log, Request request) {
  const RequestFilter filter{.method = request.queryValue("method").value_or(""),
                             .path = request.queryValue("path").value_or("")};
  const std::int64_t atLeast = integerQuery(request, "atLeast", 0, 1000);
  const std::int64_t limit = integerQuery(request, "timeoutMs", 5000, longestWait);
  JSONArray found;
  try {
    for (const RecordedRequest& each :
         co_await log.waitFor(filter, static_cast<std::size_t>(atLeast), std::chrono::milliseconds(limit))) {
      found.push_back(each.json());
    }
  } catch (const TimeoutFailure& failure) {
    throw apiError(408, failure.description());
  }
  co_return Response::json(200, {{"requests", std::move(found)}});
}

void addObservation(Router& router, Controlled to) {
  router.add("GET", "/__control/requests", Scheme::both, [to](Request request) -> Task<Response> {
    return recordedRequests(to.requests, std::move(request));
  });
  router.add("DELETE", "/__control/requests", Scheme::both, [to](const Request&) {
    to.requests.clear();
    return done();
  });
  router.add("GET", "/__control/sleep", Scheme::both, [](Request request) -> Task<Response> {
    const std::int64_t duration = integerQuery(request, "ms", 0, longestWait);
    co_await sleepFor(std::chrono::milliseconds(duration));
    co_return Response::json(200, {{"slept", duration}});
  });
}

void addFaults(Router& router, Controlled to) {
  router.add("GET", "/__control/faults", Scheme::both, [to](const Request&) {
    JSONArray faults;
    for (const Fault& fault : to.faults.all()) faults.push_back(fault.json());
    return Response::json(200, {{"faults", std::move(faults)}});
  });
  router.add("POST", "/__control/faults", Scheme::both, [to](const Request& request) {
    return Response::json(200, {{"id", to.faults.add(faultFromJSON(bodyObject(request)))}});
  });
  router.add("DELETE", "/__control/faults", Scheme::both, [to](const Request&) {
    to.faults.clear();
    return done();
  });
  router.add("DELETE", "/__control/faults/{id}", Scheme::both, [to](const Request& request) {
    const auto id = decimalInteger(request.parameter("id"));
    return doneOr404(id && to.faults.remove(*id), "there is no such fault");
  });
  router.add("POST", "/__control/faults/release", Scheme::both, [to](const Request&) {
    to.faults.release();
    return done();
  });
}

}  // namespace

void removePerson(const Controlled& from, const std::string& sub) {
  from.identity.revoke(sub);
  from.sheets.removeAll(sub);
  from.projects.removeAll(sub);
  from.attachments.removeAll(sub);
  from.lists.removeAll(sub);
  from.people.remove(sub);
}

bool isControlPath(std::string_view path) {
  return path.starts_with("/__control/");
}

std::optional<Response> refuseForeignPage(const Request& request) {
  const std::string host = asciiLowercased(request.header("Host").value_or(""));
  const std::string name = host.substr(0, host.find(':'));
  if ((name == "127.0.0.1" || name == "localhost") && !request.header("Origin")) return std::nullopt;
  return apiError(403, "the cloud is steered from this machine's own programs alone").response();
}

void addControlRoutes(Router& router, Controlled controlled) {
  addPeople(router, controlled);
  addSheets(router, controlled);
  addProjects(router, controlled);
  addAssistantThings(router, controlled);
  addObservation(router, controlled);
  addFaults(router, controlled);
}

}  // namespace vorlane::devcloud
