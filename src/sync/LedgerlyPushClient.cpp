#include "sync/LedgerlyPushClient.h"

#include "base/JsonArguments.h"

#include <fmt/format.h>

#include <optional>
#include <utility>

namespace vorlane {
namespace {

constexpr char sheetsPath[] = "/api/user/sheets";

/// Whatever is no JSON object counts as an empty one.
JSONMap answerOf(const URLResponse& response) {
  try {
    return parseJSONMap(response.body);
  } catch (const JSONParseFailure&) {
    return {};
  }
}

/// The number at "sheet", "id". A double or a text is no number of a sheet.
std::optional<std::int64_t> newSheetID(const URLResponse& response) {
  const auto answer = answerOf(response);
  const auto* sheet = json::object(answer, "sheet");
  const auto* id = sheet == nullptr ? nullptr : json::find(*sheet, "id");
  if (id == nullptr || !id->is_int64()) return std::nullopt;
  return id->get_int64();
}

}  // namespace

LedgerlyPushClient::HTTPFailure::HTTPFailure(std::string step, int status, std::string body)
    : Failure(fmt::format("HTTPFailure(step: {}, status: {}, body: {})", cloud::quoted(step), status,
                          cloud::quoted(body))),
      step_(std::move(step)),
      status_(status),
      body_(std::move(body)) {}

LedgerlyPushClient::SheetGone::SheetGone(std::int64_t remoteID)
    : Failure(fmt::format("sheet {} is gone server-side", remoteID)), remoteID_(remoteID) {}

Task<std::int64_t> LedgerlyPushClient::create(std::string title, JSONMap data) const {
  JSONMap body{
      {"name", title}, {"type", "saved"}, {"sourceName", title}, {"metadata", {{"source", "vorlane-agent"}}}};
  body["data"] = std::move(data);
  const auto id = newSheetID(co_await exchange("POST", sheetsPath, std::move(body)));
  if (!id) throw HTTPFailure(std::string("POST ") + sheetsPath, 201, "response carried no numeric sheet.id");
  co_return *id;
}

Task<> LedgerlyPushClient::update(std::int64_t remoteID, std::string title, JSONMap data) const {
  JSONMap body{{"name", title}};
  body["data"] = std::move(data);
  try {
    co_await exchange("PUT", fmt::format("{}/{}", sheetsPath, remoteID), std::move(body));
  } catch (const HTTPFailure& failure) {
    if (failure.status() == 404) throw SheetGone(remoteID);
    throw;
  }
}

Task<URLResponse> LedgerlyPushClient::exchange(std::string method, std::string path, JSONMap body) const {
  auto request = cloud::request(method, base, path);
  request.timeout = timeout;
  cloud::setBearer(request, co_await bearer());
  cloud::setJSONBody(request, std::exchange(body, {}));
  auto response = co_await send(std::move(request));
  if (!cloud::isSuccess(response)) {
    throw HTTPFailure(fmt::format("{} {}", method, path), response.status, cloud::bodyText(response));
  }
  co_return response;
}

}  // namespace vorlane
