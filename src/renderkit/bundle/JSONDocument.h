#pragma once

#include <boost/json/value.hpp>

#include <string>
#include <string_view>

namespace renderkit {

/// Parses one JSON document. Strict: nothing behind it, no repeated key but the last counts.
/// Doubles are the nearest ones; one beyond their range is infinite, and refused where it is
/// read as a number. Throws BundleDocumentError that names the entry and the byte.
boost::json::value parseJSON(std::string_view text, std::string_view entry);

/// Writes a value over several lines, as a person reads it. A double is the shortest text that
/// reads back the same.
std::string printJSON(const boost::json::value& value);

/// The same on one line.
std::string printJSONLine(const boost::json::value& value);

}  // namespace renderkit
