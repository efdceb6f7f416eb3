#pragma once

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

#include "base/Failure.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace vorlane {

/// Any JSON value. Integers (signed, and unsigned beyond their range) and
/// floating-point numbers are kept apart.
using JSONValue = boost::json::value;
using JSONArray = boost::json::array;
/// The JSON map: from string to any JSON value. The type of params, results,
/// tool arguments and documents.
using JSONMap = boost::json::object;

/// How deep a document may nest, top level included. Parsing and writing refuse
/// more, so that recursion over any document that we hold stays bounded.
inline constexpr std::size_t jsonDepthLimit = 512;

/// The text is no JSON document that we take. Domain "JSON", code 1.
class JSONParseFailure : public DomainFailure {
 public:
  explicit JSONParseFailure(std::string description) : DomainFailure("JSON", 1, std::move(description)) {}
};

/// The value has no JSON form that a later read would take. Domain "JSON", code 2.
class JSONWriteFailure : public DomainFailure {
 public:
  explicit JSONWriteFailure(std::string description) : DomainFailure("JSON", 2, std::move(description)) {}
};

/// Parses one document, an object or an array at the top. Strict: no comments,
/// no trailing commas, no byte-order mark, nothing after the document. Refuses
/// invalid UTF-8, lone surrogate escapes, numbers beyond a double's range and
/// nesting beyond jsonDepthLimit. Of a repeated key the last wins. Doubles are
/// read exactly (the nearest one), so that a document survives read and write.
/// The value lies in `storage`, which is worth choosing where it is read once and dropped.
/// Throws JSONParseFailure, which names the byte.
JSONValue parseJSON(std::string_view text, boost::json::storage_ptr storage = {});

/// Like parseJSON, for a document that must be an object; a document of another
/// form throws JSONParseFailure with the description `notAnObject`.
JSONMap parseJSONMap(std::string_view text, std::string_view notAnObject = "not a JSON object");

/// Writes a value with the keys of every object sorted by their UTF-8 bytes and
/// without white space. A double is written so that it reads back as the same
/// double ("4.0", never "4"). Throws JSONWriteFailure for NaN, infinity, invalid
/// UTF-8 and nesting beyond jsonDepthLimit; `out` is then as it was.
void appendJSON(std::string& out, const JSONValue& value);
/// The same for a value that stands at `depth` of a document, its top being 1.
void appendJSON(std::string& out, const JSONValue& value, std::size_t depth);
void appendJSON(std::string& out, const JSONMap& map);
std::string writeJSON(const JSONValue& value);
std::string writeJSON(const JSONMap& map);

/// Writes one JSON string, quotes included. Throws JSONWriteFailure for invalid UTF-8.
void appendJSONString(std::string& out, std::string_view text);

}  // namespace vorlane
