#include "devcloud/RequestLog.h"

#include "base/Encodings.h"
#include "base/SHA256.h"
#include "base/Text.h"
#include "base/tasks/Timing.h"
#include "devcloud/Control.h"
#include "devcloud/Router.h"

#include <fmt/format.h>

#include <algorithm>

namespace vorlane::devcloud {
namespace {

constexpr std::int64_t longestWait = 600'000;
constexpr std::size_t mostRequests = 1000;
constexpr std::size_t longestBody = std::size_t{1} << 20;
constexpr std::size_t mostBodyBytes = std::size_t{64} << 20;

/// "Bearer TOKEN" with a digest for the token; a header without a scheme is all token.
std::string withoutToken(const std::string& authorization) {
  const std::size_t blank = authorization.find(' ');
  const std::size_t start = blank == std::string::npos ? 0 : blank + 1;
  return authorization.substr(0, start) + tokenDigest(std::string_view(authorization).substr(start));
}

}  // namespace

std::string tokenDigest(std::string_view token) {
  return "sha256:" + sha256Hex(token).substr(0, 16);
}

std::optional<std::string> RecordedRequest::header(std::string_view name) const {
  const std::string wanted = asciiLowercased(name);
  for (const auto& [key, value] : headers) {
    if (asciiLowercased(key) == wanted) return value;
  }
  return std::nullopt;
}

JSONMap RecordedRequest::json() const {
  JSONMap named;
  for (const auto& [name, value] : headers) named[validUTF8(name)] = validUTF8(value);
  JSONMap map{{"number", number},        {"at", webDateText(at)},     {"method", validUTF8(method)},
              {"path", validUTF8(path)}, {"query", validUTF8(query)}, {"headers", std::move(named)},
              {"secure", secure}};
  if (isValidUTF8(body)) {
    map["body"] = body;
  } else {
    map["bodyBase64"] = base64Encoded(body);
  }
  return map;
}

bool RequestFilter::matches(const RecordedRequest& request) const {
  return (method.empty() || method == request.method) && (path.empty() || path == request.path);
}

void RequestLog::addRoutes(Router& router) {
  router.add("GET", "/__control/requests", Scheme::both,
             [this](Request request) -> Task<Response> { return answer(std::move(request)); });
  router.add("DELETE", "/__control/requests", Scheme::both, [this](const Request&) {
    clear();
    return done();
  });
}

Task<Response> RequestLog::answer(Request request) {
  const RequestFilter filter{.method = request.queryValue("method").value_or(""),
                             .path = request.queryValue("path").value_or("")};
  const std::int64_t atLeast = integerQuery(request, "atLeast", 0, 1000);
  const std::int64_t limit = integerQuery(request, "timeoutMs", 5000, longestWait);
  JSONArray found;
  try {
    for (const RecordedRequest& each :
         co_await waitFor(filter, static_cast<std::size_t>(atLeast), std::chrono::milliseconds(limit))) {
      found.push_back(each.json());
    }
  } catch (const TimeoutFailure& failure) {
    throw apiError(408, failure.description());
  }
  co_return Response::json(200, {{"requests", std::move(found)}});
}

void RequestLog::record(const Request& request, Date at) {
  RecordedRequest recorded{.number = nextNumber_++,
                           .at = at,
                           .method = request.method,
                           .path = request.path,
                           .query = request.query,
                           .headers = request.headers,
                           .body = request.body.substr(0, longestBody),
                           .secure = request.secure};
  for (auto& [name, value] : recorded.headers) {
    if (asciiLowercased(name) == "authorization") value = withoutToken(value);
  }
  bodyBytes_ += recorded.body.size();
  requests_.push_back(std::move(recorded));
  while (requests_.size() > mostRequests || bodyBytes_ > mostBodyBytes) {
    bodyBytes_ -= requests_.front().body.size();
    requests_.pop_front();
  }
  std::exchange(arrival_, std::make_shared<Event>())->set();
}

std::vector<RecordedRequest> RequestLog::find(const RequestFilter& filter) const {
  std::vector<RecordedRequest> found;
  std::ranges::copy_if(requests_, std::back_inserter(found),
                       [&](const RecordedRequest& request) { return filter.matches(request); });
  return found;
}

void RequestLog::clear() {
  requests_.clear();
  bodyBytes_ = 0;
}

Task<std::vector<RecordedRequest>> RequestLog::waitFor(RequestFilter filter, std::size_t count,
                                                       std::chrono::milliseconds limit) {
  using SteadyClock = std::chrono::steady_clock;
  const auto deadline = SteadyClock::now() + limit;
  for (;;) {
    auto found = find(filter);
    if (found.size() >= count) co_return found;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - SteadyClock::now());
    std::string what = fmt::format("waiting for {} requests \"{} {}\", of which {} arrived,", count,
                                   filter.method, filter.path, found.size());
    if (left.count() <= 0) throw TimeoutFailure(what);
    auto arrived = [arrival = arrival_]() -> Task<bool> {
      co_await arrival->wait();
      co_return true;
    };
    co_await withTimeout<bool>(left, std::move(what), std::move(arrived));
  }
}

}  // namespace vorlane::devcloud
