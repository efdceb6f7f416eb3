#include "sync/LedgerlyPushClient.h"

#include "base/JSONEvents.h"

#include <fmt/format.h>

#include <optional>
#include <utility>

namespace vorlane {
namespace {

namespace json = boost::json;

constexpr char sheetsPath[] = "/api/user/sheets";

/// Looks for the number at "sheet", "id". The cloud answers with the whole sheet, of which no
/// tree is built for this one number. Of a repeated key the last value counts.
class SheetIDHandler : public JSONEventLimits {
 public:
  const std::optional<std::int64_t>& id() const { return id_; }

  bool on_document_begin(json::error_code&) { return true; }
  bool on_document_end(json::error_code&) { return true; }
  bool on_object_begin(json::error_code&) {
    if (depth_ == 0) inMap_ = true;
    if (depth_ == 1 && isSheet_) inSheet_ = true;
    return begin();
  }
  bool on_object_end(std::size_t, json::error_code&) { return end(); }
  bool on_array_begin(json::error_code&) { return begin(); }
  bool on_array_end(std::size_t, json::error_code&) { return end(); }
  bool on_key_part(json::string_view part, std::size_t, json::error_code&) {
    if (depth_ <= 2) key_.append(part);
    return true;
  }
  bool on_key(json::string_view part, std::size_t, json::error_code&) {
    if (depth_ > 2) return true;
    key_.append(part);
    isSheet_ = depth_ == 1 && inMap_ && key_ == "sheet";
    isID_ = depth_ == 2 && inSheet_ && key_ == "id";
    key_.clear();
    return true;
  }
  bool on_string_part(json::string_view, std::size_t, json::error_code&) { return true; }
  bool on_string(json::string_view, std::size_t, json::error_code&) { return value(std::nullopt); }
  bool on_number_part(json::string_view, json::error_code&) { return true; }
  bool on_int64(std::int64_t number, json::string_view, json::error_code&) { return value(number); }
  bool on_uint64(std::uint64_t, json::string_view, json::error_code&) { return value(std::nullopt); }
  bool on_double(double rough, json::string_view text, json::error_code& error) {
    if (!exactJSONDouble(rough, text)) error = json::error::exponent_overflow;
    return !error.failed() && value(std::nullopt);
  }
  bool on_bool(bool, json::error_code&) { return value(std::nullopt); }
  bool on_null(json::error_code&) { return value(std::nullopt); }
  bool on_comment_part(json::string_view, json::error_code&) { return true; }
  bool on_comment(json::string_view, json::error_code&) { return true; }

 private:
  /// Every value passes here, a container when it begins.
  bool value(std::optional<std::int64_t> number) {
    if (depth_ == 1 && isSheet_) id_.reset();
    if (depth_ == 2 && isID_) id_ = number;
    return true;
  }
  bool begin() {
    value(std::nullopt);
    ++depth_;
    return true;
  }
  bool end() {
    if (--depth_ == 1) inSheet_ = isID_ = false;
    return true;
  }

  int depth_ = 0;
  bool inMap_ = false, inSheet_ = false, isSheet_ = false, isID_ = false;
  std::string key_;
  std::optional<std::int64_t> id_;
};

/// A double or a text is no number of a sheet, and an answer that is no JSON object holds none.
std::optional<std::int64_t> newSheetID(const std::string& answer) {
  try {
    return JSONEventReader<SheetIDHandler>().read(answer).id();
  } catch (const JSONParseFailure&) {
    return std::nullopt;
  }
}

}  // namespace

LedgerlyPushClient::HTTPFailure::HTTPFailure(const std::string& step, int status, const std::string& body)
    : AnswerFailure(fmt::format("HTTPFailure(step: {}, status: {}, body: {})", cloud::quoted(step), status,
                                cloud::quoted(body)),
                    step, status, body) {}

LedgerlyPushClient::SheetGone::SheetGone(std::int64_t remoteID)
    : Failure(fmt::format("sheet {} is gone server-side", remoteID)), remoteID_(remoteID) {}

std::string LedgerlyPushClient::createBody(const std::string& title, JSONMap data) {
  // Where the data lies, so that it need not be copied.
  JSONMap body({{"name", title},
                {"type", "saved"},
                {"sourceName", title},
                {"metadata", {{"source", "vorlane-agent"}}}},
               data.storage());
  body["data"] = std::move(data);
  return writeJSON(body);
}

std::string LedgerlyPushClient::updateBody(const std::string& title, JSONMap data) {
  JSONMap body({{"name", title}}, data.storage());
  body["data"] = std::move(data);
  return writeJSON(body);
}

Task<std::int64_t> LedgerlyPushClient::create(std::string body) const {
  const auto response = co_await exchange("POST", sheetsPath, std::move(body));
  // Nothing is awaited from here on: also a pass that is being cancelled has to learn the number.
  const auto id = newSheetID(response.body);
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
  auto request = api.request(method, path, cloud::Answer::document);
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
