#include "sync/LedgerlyPushClient.h"

#include "base/JSONArguments.h"

#include <fmt/format.h>
#include <boost/json/monotonic_resource.hpp>

#include <optional>
#include <utility>

namespace vorlane {
namespace {

constexpr char sheetsPath[] = "/api/user/sheets";

/// The number at "sheet", "id". A double or a text is no number of a sheet, and an answer
/// that is no JSON object holds none.
std::optional<std::int64_t> newSheetID(const URLResponse& response) {
  // The cloud answers with the whole sheet, which is read for this one number.
  boost::json::monotonic_resource memory;
  JSONValue answer(&memory);
  try {
    answer = parseJSON(response.body, &memory);
  } catch (const JSONParseFailure&) {
    return std::nullopt;
  }
  const auto* top = answer.if_object();
  const auto* sheet = top == nullptr ? nullptr : json::object(*top, "sheet");
  const auto* id = sheet == nullptr ? nullptr : json::find(*sheet, "id");
  if (id == nullptr || !id->is_int64()) return std::nullopt;
  return id->get_int64();
}

}  // namespace

LedgerlyPushClient::HTTPFailure::HTTPFailure(const std::string& step, int status, const std::string& body)
    : AnswerFailure(fmt::format("HTTPFailure(step: {}, status: {}, body: {})", cloud::quoted(step), status,
                                cloud::quoted(body)),
                    step, status, body) {}

LedgerlyPushClient::SheetGone::SheetGone(std::int64_t remoteID)
    : Failure(fmt::format("sheet {} is gone server-side", remoteID)), remoteID_(remoteID) {}

std::string LedgerlyPushClient::createBody(const std::string& title, JSONMap data) {
  JSONMap body{
      {"name", title}, {"type", "saved"}, {"sourceName", title}, {"metadata", {{"source", "vorlane-agent"}}}};
  body["data"] = std::move(data);
  return writeJSON(body);
}

std::string LedgerlyPushClient::updateBody(const std::string& title, JSONMap data) {
  JSONMap body{{"name", title}};
  body["data"] = std::move(data);
  return writeJSON(body);
}

Task<std::int64_t> LedgerlyPushClient::create(std::string body) const {
  const auto id = newSheetID(co_await exchange("POST", sheetsPath, std::move(body)));
  if (!id) throw HTTPFailure(std::string("POST ") + sheetsPath, 201, "response carried no numeric sheet.id");
  co_return *id;
}

Task<> LedgerlyPushClient::update(std::int64_t remoteID, std::string body) const {
  try {
    co_await exchange("PUT", fmt::format("{}/{}", sheetsPath, remoteID), std::move(body));
  } catch (const HTTPFailure& failure) {
    if (failure.status() == 404) throw SheetGone(remoteID);
    throw;
  }
}

Task<URLResponse> LedgerlyPushClient::exchange(std::string method, std::string path, std::string body) const {
  auto request = api.request(method, path);
  // A sheet that the cloud makes twice is two sheets; replacing it twice does no harm.
  request.retryOnStaleConnection = method != "POST";
  cloud::setBearer(request, co_await api.bearer());
  cloud::setJSONBody(request, std::move(body));
  auto response = co_await api.send(std::move(request));
  if (!cloud::isSuccess(response)) {
    throw HTTPFailure(fmt::format("{} {}", method, path), response.status, cloud::bodyText(response));
  }
  co_return response;
}

}  // namespace vorlane
