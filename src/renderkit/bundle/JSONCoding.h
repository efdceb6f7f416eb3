#pragma once

#include "renderkit/bundle/BakeAnimation.h"
#include "renderkit/bundle/BakeBundleError.h"

#include <fmt/format.h>
#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

#include <array>
#include <cmath>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

/// Both ways between records and JSON. A record lists its keys once, in a specialisation of
/// Keys; an enumeration its texts, in one of Texts. Every key is required but an optional's.
namespace renderkit::coding {

namespace json = boost::json;

/// Specialised with `static constexpr auto list = std::tuple{Key{...}, ...}`.
template <class Record>
struct Keys {};

template <class Record, class Member>
struct Key {
  const char* name;
  Member Record::* member;
};

/// Specialised with `static constexpr std::array list = {std::pair{Enum, text}, ...}`.
template <class Enum>
struct Texts {};

/// Where a value stands in its document; lives on the stack of the decoder, and costs
/// nothing until a failure is told.
class Path {
 public:
  explicit Path(std::string_view entry) : name_(entry) {}
  Path(const Path& parent, std::string_view key) : parent_(&parent), name_(key) {}
  Path(const Path& parent, std::size_t index) : parent_(&parent), index_(index), isIndex_(true) {}

  /// "records[2].material.opacity"; empty at the top.
  std::string text() const {
    if (parent_ == nullptr) return {};
    auto text = parent_->text();
    if (isIndex_) return text + fmt::format("[{}]", index_);
    return text.empty() ? std::string(name_) : text + "." + std::string(name_);
  }

  [[noreturn]] void fail(std::string_view what) const {
    const auto where = text();
    throw BundleDocumentError(
        fmt::format("[bakeBundle] {}: {}{}", entry(), where.empty() ? "the document" : where, what));
  }

 private:
  std::string_view entry() const { return parent_ == nullptr ? name_ : parent_->entry(); }

  const Path* parent_ = nullptr;
  std::string_view name_;
  std::size_t index_ = 0;
  bool isIndex_ = false;
};

inline void decode(const json::value& value, const Path& path, double& out) {
  if (value.is_double()) {
    out = value.get_double();
  } else if (value.is_int64()) {
    out = static_cast<double>(value.get_int64());
  } else if (value.is_uint64()) {
    out = static_cast<double>(value.get_uint64());
  } else {
    path.fail(" is not a number");
  }
  if (!std::isfinite(out)) path.fail(" is beyond the range of a number");
}

inline void decode(const json::value& value, const Path& path, std::int64_t& out) {
  if (value.is_int64()) {
    out = value.get_int64();
    return;
  }
  double number = 0;
  decode(value, path, number);
  // 1.0 is an integer too.
  if (std::trunc(number) != number || std::abs(number) >= 0x1p63) path.fail(" is not an integer");
  out = static_cast<std::int64_t>(number);
}

inline void decode(const json::value& value, const Path& path, bool& out) {
  if (!value.is_bool()) path.fail(" is not true or false");
  out = value.get_bool();
}

inline void decode(const json::value& value, const Path& path, std::string& out) {
  if (!value.is_string()) path.fail(" is not a string");
  out.assign(value.get_string().data(), value.get_string().size());
}

inline const json::object& object(const json::value& value, const Path& path) {
  if (!value.is_object()) path.fail(" is not an object");
  return value.get_object();
}

inline const json::array& array(const json::value& value, const Path& path) {
  if (!value.is_array()) path.fail(" is not an array");
  return value.get_array();
}

template <class Record>
  requires requires { Keys<Record>::list; }
void decode(const json::value& value, const Path& path, Record& out);

void decode(const json::value& value, const Path& path, TransformSample& out);

template <class Enum>
  requires requires { Texts<Enum>::list; }
void decode(const json::value& value, const Path& path, Enum& out) {
  std::string text;
  decode(value, path, text);
  for (const auto& [known, name] : Texts<Enum>::list) {
    if (text == name) {
      out = known;
      return;
    }
  }
  path.fail(fmt::format(" is unknown: \"{}\"", text));
}

template <class Element>
void decode(const json::value& value, const Path& path, std::vector<Element>& out) {
  const auto& elements = array(value, path);
  out.resize(elements.size());
  for (std::size_t i = 0; i < elements.size(); ++i) decode(elements[i], Path(path, i), out[i]);
}

template <class Element>
void decode(const json::value& value, const Path& path, std::map<std::string, Element>& out) {
  for (const auto& [key, member] : object(value, path))
    decode(member, Path(path, key), out[std::string(key)]);
}

template <class Wrapped>
void decode(const json::value& value, const Path& path, std::optional<Wrapped>& out) {
  if (value.is_null()) {
    out.reset();
  } else {
    decode(value, path, out.emplace());
  }
}

template <class Member>
void decodeMissing(const Path& path, Member&) {
  path.fail(" is missing");
}
template <class Wrapped>
void decodeMissing(const Path&, std::optional<Wrapped>& out) {
  out.reset();
}

template <class Record>
  requires requires { Keys<Record>::list; }
void decode(const json::value& value, const Path& path, Record& out) {
  const auto& members = object(value, path);
  const auto one = [&](const auto& key) {
    const Path place(path, key.name);
    if (const auto* member = members.if_contains(key.name)) {
      decode(*member, place, out.*key.member);
    } else {
      decodeMissing(place, out.*key.member);
    }
  };
  std::apply([&](const auto&... key) { (one(key), ...); }, Keys<Record>::list);
}

inline json::value encode(double value) {
  return value;
}
inline json::value encode(std::int64_t value) {
  return value;
}
inline json::value encode(bool value) {
  return value;
}
inline json::value encode(const std::string& value) {
  return json::value(json::string(value));
}

template <class Record>
  requires requires { Keys<Record>::list; }
json::value encode(const Record& record);

template <class Enum>
  requires requires { Texts<Enum>::list; }
json::value encode(Enum value) {
  for (const auto& [known, name] : Texts<Enum>::list) {
    if (known == value) return json::value(json::string(name));
  }
  return nullptr;
}

template <class Element>
json::value encode(const std::vector<Element>& elements) {
  json::array array;
  array.reserve(elements.size());
  for (const auto& element : elements) array.push_back(encode(element));
  return array;
}

template <class Element>
json::value encode(const std::map<std::string, Element>& members) {
  json::object object;
  for (const auto& [key, member] : members) object[key] = encode(member);
  return object;
}

template <class Record>
  requires requires { Keys<Record>::list; }
json::value encode(const Record& record) {
  json::object object;
  const auto put = [&]<class Member>(const char* name, const Member& member) {
    if constexpr (requires { member.has_value(); }) {
      if (member) object[name] = encode(*member);
    } else {
      object[name] = encode(member);
    }
  };
  std::apply([&](const auto&... key) { (put(key.name, record.*key.member), ...); }, Keys<Record>::list);
  return object;
}

}  // namespace renderkit::coding
