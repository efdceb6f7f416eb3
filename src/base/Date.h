#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace vorlane {

/// A moment in UTC, in microseconds.
using Date = std::chrono::sys_time<std::chrono::microseconds>;

/// Gives the present time. Injected where a test has to control it.
using Clock = std::function<Date()>;

Date now();

/// The form in which dates are stored, "yyyy-MM-dd HH:mm:ss.SSS" in UTC,
/// rounded down to the millisecond.
std::string storageText(Date date);
/// Reads the storage form and its shorter forms "yyyy-MM-dd HH:mm:ss" and
/// "yyyy-MM-dd HH:mm"; nothing for any other text.
std::optional<Date> dateFromStorage(std::string_view text);
/// `date` as it comes back from storage, so that two dates compare alike
/// whether or not they have been stored.
Date storageRounded(Date date);

/// "yyyy-MM-ddTHH:mm:ssZ", whole seconds, rounded down.
std::string iso8601Text(Date date);
/// Reads an internet date-time, with fractional seconds or without; nothing for
/// any other text.
std::optional<Date> dateFromISO8601(std::string_view text);

/// Seconds since 2001-01-01T00:00:00Z, and back. A number beyond what a Date
/// holds is clamped to its ends; NaN gives nothing.
double secondsSince2001(Date date);
std::optional<Date> dateFromSecondsSince2001(double seconds);

/// Seconds since 1970 with a fractional part.
double secondsSince1970(Date date);

}  // namespace vorlane
