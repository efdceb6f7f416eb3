#include "sync/RecentsListReader.h"

#include "base/Failure.h"
#include "base/JSONEvents.h"

#include <fmt/format.h>
#include <boost/asio/post.hpp>
#include <boost/asio/use_awaitable.hpp>

#include <algorithm>
#include <cstdint>
#include <exception>
#include <limits>
#include <map>
#include <utility>
#include <variant>

namespace vorlane {
namespace {

namespace json = boost::json;

/// What is read before others get their turn on the thread, in bytes.
constexpr std::size_t slice = std::size_t{64} << 10;

struct Null {};
struct Other {};
/// The value of a key, as far as it matters here.
using Field = std::variant<Null, std::string, std::int64_t, Other>;
using Fields = std::map<std::string, Field, std::less<>>;

/// A string that may be missing or null. Throws Failure for a value of another type.
std::optional<std::string> optionalString(const Fields& fields, std::string_view key) {
  const auto found = fields.find(key);
  if (found == fields.end() || std::holds_alternative<Null>(found->second)) return std::nullopt;
  const auto* text = std::get_if<std::string>(&found->second);
  if (text == nullptr) throw Failure(fmt::format("\"{}\" of an entry is no string", key));
  return *text;
}

std::string requiredString(const Fields& fields, std::string_view key) {
  auto text = optionalString(fields, key);
  if (!text) throw Failure(fmt::format("an entry has no \"{}\"", key));
  return std::move(*text);
}

std::string idOf(const Fields& fields, bool mayBeNumber) {
  const auto found = fields.find("id");
  if (!mayBeNumber || found == fields.end() || std::holds_alternative<std::string>(found->second))
    return requiredString(fields, "id");
  const auto* number = std::get_if<std::int64_t>(&found->second);
  if (number == nullptr) throw Failure("id is neither String nor Int");
  return std::to_string(*number);
}

/// Collects the entries of the lists under the key, of which there may be several: of a key
/// that is repeated the last value counts.
class ListHandler : public JSONEventLimits {
 public:
  explicit ListHandler(const RecentsListReader::Form& form) : form_(form) {}

  /// How many values the key has had so far, and whether the last of them is a list.
  int lists() const { return lists_; }
  bool isList() const { return isList_; }
  /// What is wrong with the last of them.
  const std::exception_ptr& failure() const { return failure_; }
  /// Collects from the `list`-th on, counted from 1.
  void collectFrom(int list) { wanted_ = list; }
  std::vector<RecentsListReader::Entry> take() { return std::exchange(entries_, {}); }

  bool on_document_begin(json::error_code&) { return true; }
  bool on_document_end(json::error_code&) { return true; }
  bool on_object_begin(json::error_code&) {
    if (depth_ == 0) isMap_ = true;
    value(Other());
    if (depth_ == 2 && inList_) fields_.clear();
    ++depth_;
    return true;
  }
  bool on_object_end(std::size_t, json::error_code&) {
    if (--depth_ == 2 && inList_) endEntry();
    return true;
  }
  bool on_array_begin(json::error_code&) {
    value(Other());
    if (depth_ == 1 && atList_) isList_ = inList_ = true;
    if (depth_ == 2 && inList_) noObject();
    ++depth_;
    return true;
  }
  bool on_array_end(std::size_t, json::error_code&) {
    if (--depth_ == 1) inList_ = false;
    return true;
  }
  bool on_key_part(json::string_view part, std::size_t, json::error_code&) {
    text_.append(part);
    return true;
  }
  bool on_key(json::string_view part, std::size_t, json::error_code&) {
    text_.append(part);
    key_ = std::exchange(text_, {});
    atList_ = depth_ == 1 && isMap_ && key_ == form_.key;
    return true;
  }
  bool on_string_part(json::string_view part, std::size_t, json::error_code&) {
    if (isWanted()) text_.append(part);
    return true;
  }
  bool on_string(json::string_view part, std::size_t, json::error_code&) {
    if (isWanted()) text_.append(part);
    return scalar(std::exchange(text_, {}));
  }
  bool on_number_part(json::string_view, json::error_code&) { return true; }
  bool on_int64(std::int64_t number, json::string_view, json::error_code&) { return scalar(number); }
  bool on_uint64(std::uint64_t, json::string_view, json::error_code&) { return scalar(Other()); }
  bool on_double(double rough, json::string_view text, json::error_code& error) {
    if (!exactJSONDouble(rough, text)) error = json::error::exponent_overflow;
    return !error.failed() && scalar(Other());
  }
  bool on_bool(bool, json::error_code&) { return scalar(Other()); }
  bool on_null(json::error_code&) { return scalar(Null()); }
  bool on_comment_part(json::string_view, json::error_code&) { return true; }
  bool on_comment(json::string_view, json::error_code&) { return true; }

 private:
  bool isWanted() const {
    return depth_ == 3 && inList_ &&
           (key_ == "id" || key_ == "updatedAt" ||
            std::ranges::find(form_.titleKeys, key_) != std::end(form_.titleKeys));
  }
  bool scalar(Field field) {
    if (depth_ == 2 && inList_) noObject();
    value(std::move(field));
    return true;
  }
  /// Every value passes here, a container when it begins.
  void value(Field field) {
    if (depth_ == 1 && atList_) {
      ++lists_;
      isList_ = false;
      failure_ = nullptr;
    }
    if (isWanted()) fields_.insert_or_assign(key_, std::move(field));
  }
  void noObject() { fail(Failure(fmt::format("an entry of \"{}\" is no object", form_.key))); }
  void fail(const Failure& failure) {
    if (!failure_) failure_ = std::make_exception_ptr(failure);
  }
  void endEntry() {
    if (failure_) return;
    try {
      RecentsListReader::Entry entry{idOf(fields_, form_.numericIDs), {}, {}};
      for (const auto titleKey : form_.titleKeys) {
        // All of them are read, since a wrong type anywhere says that this is not the list we know.
        auto text = titleKey.empty() ? std::nullopt : optionalString(fields_, titleKey);
        if (!entry.title) entry.title = std::move(text);
      }
      entry.updatedAt = requiredString(fields_, "updatedAt");
      if (lists_ >= wanted_) entries_.push_back(std::move(entry));
    } catch (const Failure& failure) {
      fail(failure);
    }
  }

  const RecentsListReader::Form form_;
  int depth_ = 0;
  bool isMap_ = false, atList_ = false, inList_ = false, isList_ = false;
  int lists_ = 0, wanted_ = std::numeric_limits<int>::max();
  std::string key_, text_;
  Fields fields_;
  std::exception_ptr failure_;
  std::vector<RecentsListReader::Entry> entries_;
};

/// Feeds the body to `reader`, a slice at a time, and calls `after` behind each.
Task<> feed(JSONEventReader<ListHandler>& reader, const std::string& body, std::function<Task<>()> after) {
  reader.begin(body);
  for (std::size_t at = 0; at < body.size(); at += slice) {
    if (at > 0) co_await boost::asio::post(boost::asio::use_awaitable);
    reader.feed(std::string_view(body).substr(at, slice), at + slice < body.size());
    if (after) co_await after();
  }
}

}  // namespace

Task<> RecentsListReader::read(Form form, std::string body, std::function<Task<>(Entry)> take) {
  JSONEventReader<ListHandler> first(form);
  co_await feed(first, body, nullptr);
  const auto& read = first.handler();
  if (!read.isList()) throw Failure(fmt::format("the answer has no list \"{}\"", form.key));
  if (read.failure()) std::rethrow_exception(read.failure());

  JSONEventReader<ListHandler> second(form);
  second.handler().collectFrom(read.lists());
  co_await feed(second, body, [&]() -> Task<> {
    for (auto& entry : second.handler().take()) co_await take(std::move(entry));
  });
}

}  // namespace vorlane
