#pragma once

#include "devcloud/Message.h"

#include <optional>
#include <string>
#include <string_view>

namespace vorlane::devcloud {

class AILists;
class Attachments;
class Faults;
class Identity;
class People;
class Projects;
class RequestLog;
class Router;
class Sheets;

/// What the control routes work on. Everything outlives the router.
struct Controlled {
  People& people;
  Identity& identity;
  Sheets& sheets;
  Projects& projects;
  Attachments& attachments;
  AILists& lists;
  RequestLog& requests;
  Faults& faults;
};

/// Removes the person with everything that is theirs: refresh tokens, sheets,
/// projects, attachments and lists. Harmless when there is nobody of that name.
void removePerson(const Controlled& from, const std::string& sub);

/// True for a path below which the cloud is steered rather than used.
bool isControlPath(std::string_view path);

/// The response that refuses a control request which a web page could have
/// sent: one with an Origin, or for a host that is not this machine.
std::optional<Response> refuseForeignPage(const Request& request);

/// Adds the routes below "/__control/", on both ports, JSON in and out:
///
///   GET    people                      {"people": [...]}
///   POST   people                      adds or updates the person of "sub"; "cloudProjectWrite"
///                                      and "gone" steer what the project routes answer
///   DELETE people/{sub}                with all that is theirs
///   POST   tokens                      {"sub", "lifetime"?} -> the record for an agent's vault
///   DELETE tokens/{sub}                ends every refresh token of the person
///   GET    sheets/{sub}                {"sheets": [...]}, with documents and "updates"
///   POST   sheets/{sub}                adds a sheet, or replaces the one of "id"
///   DELETE sheets/{sub}/{id}
///   GET    projects/{sub}              {"projects": [...]}, each with "revision" and "commits"
///   POST   projects/{sub}              {"id", "name"?, "updatedAt"?, "revision"?, "commits"?}
///   DELETE projects/{sub}/{id}
///   GET    attachments/{sub}           {"attachments": [...]}, the samples first
///   POST   attachments/{sub}           {"name", "ref"?, "type"?, "kind"?, "shareLink"?, "list"?,
///                                      "category"?, "item"?, "mimeType"?, and of "text", "pages",
///                                      "base64" and "url" what it has}
///   GET    ai-lists/{sub}              {"lists": [...]}
///   POST   ai-lists/{sub}              {"name", "prompt", "sheetId", "categories", "createdAt"?}
///   GET    requests ?method ?path      {"requests": [...]}, headers included; with ?atLeast=N it waits
///                                      until so many have arrived, ?timeoutMs (5000) at the longest
///   DELETE requests
///   GET    faults, POST faults, DELETE faults, DELETE faults/{id}
///   POST   faults/release              lets go what a fault holds
///   GET    sleep ?ms                   answers after so many milliseconds
///
/// A fault is for the next "times" requests to a "path" ("match": "prefix" for
/// all that begins with it) and takes the place of any route's answer:
///
///   {"path", "status": 503}                                a status
///   {"path", "redirect": "https://..."}                    302, or the "status" given, with Location
///   {"path", "json": {...}}                                200 with a wrong receipt, or any other
///                                                          JSON value, an array or null too
///   {"path", "json": {...}, "effect": true}                the same when the request has taken effect
///   {"path", "body": "..."}, {"path", "garbage": true}     200 with what is no JSON
///   {"path", "cut": "before" | "after" | "body"}           an end of the connection
///   {"path", "delayMs": 500}, {"path", "hold": true}       a late answer
///
/// A person's sub is percent-encoded in a path.
void addControlRoutes(Router& router, Controlled controlled);

}  // namespace vorlane::devcloud
