#pragma once

#include "base/JSON.h"
#include "base/tasks/Event.h"
#include "base/tasks/Task.h"
#include "devcloud/Message.h"
#include "devcloud/Service.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vorlane::devcloud {

/// Where a fault cuts the connection.
enum class FaultCut {
  none,
  /// The handler does not run, no byte goes out.
  before,
  /// The handler has run and its effect stays, no byte of its answer goes out.
  after,
  /// The handler has run; the head and half of the body go out.
  body,
};

/// What goes wrong with the next requests to a path. The parts add up: first
/// the hold, then the delay, then either the ordered answer or the real one, then
/// the cut. With none of `cut`, `status`, `body` and `garbage` the real answer follows.
///
/// A client that keeps connections may repeat a request by itself when a
/// connection that it has used before ends without one byte of answer: order
/// such a cut for more than one request.
struct Fault {
  /// Given by Faults.
  std::int64_t id = 0;
  std::string path;
  /// True: the path and whatever begins with it.
  bool prefix = false;
  /// Empty: any method.
  std::string method;
  /// How many requests it is still for.
  std::int64_t times = 1;
  /// Answered in place of the real answer, by default with an empty body.
  std::optional<int> status;
  Headers headers;
  std::optional<std::string> body;
  /// 200 with bytes that are neither JSON nor text.
  bool garbage = false;
  /// With an ordered answer: the handler runs all the same and its effect stays,
  /// only its answer is replaced.
  bool effect = false;
  FaultCut cut = FaultCut::none;
  std::chrono::milliseconds delay{0};
  /// The request waits until Faults::release.
  bool hold = false;

  /// True when it gives the answer itself, so that no handler runs.
  bool replacesAnswer() const { return status || body || garbage || cut == FaultCut::before; }
  Response answer() const;
  JSONMap json() const;
};

/// A redirect in place of the answer. What arrives at `location`, if it is ours, is recorded.
Fault redirectFault(std::string path, std::string location, int status = 302);
/// 200, or another status, with this JSON in place of the answer: a wrong receipt, another shape.
Fault answerFault(std::string path, const JSONValue& body, int status = 200);

/// The fault that a control request orders: "path", and optionally "match"
/// ("exact" or "prefix"), "method", "times", "status", "headers", "body",
/// "json" (any JSON value), "redirect" (the Location; 302 unless "status" says
/// otherwise), "garbage", "effect", "cut" ("before", "after" or "body"),
/// "delayMs", "hold". Throws FieldFailure.
Fault faultFromJSON(const JSONMap& map);

/// The faults in the order in which they were ordered. To control them:
///
///   GET    faults                {"faults": [...]}
///   POST   faults                orders one, see below; {"id"}
///   DELETE faults, faults/{id}
///   POST   faults/release        continues what a fault holds
///   GET    sleep ?ms             answers after so many milliseconds
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
class Faults : public Service {
 public:
  void addRoutes(Router& router) override;

  /// The fault's id.
  std::int64_t add(Fault fault);
  /// The first that is for this request; it is used up by one.
  std::optional<Fault> take(const Request& request);
  const std::vector<Fault>& all() const { return faults_; }
  bool remove(std::int64_t id);
  /// Forgets all of them and continues what they hold.
  void clear();

  /// Ends when `release` is called, after half an hour at the latest.
  Task<> held() const;
  /// Continues every request that a fault holds now.
  void release();

 private:
  std::vector<Fault> faults_;
  std::int64_t nextID_ = 1;
  std::shared_ptr<Event> released_ = std::make_shared<Event>();
};

}  // namespace vorlane::devcloud
