#pragma once

#include "base/Failure.h"
#include "base/JSON.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace vorlane {

/// What a client puts on a request to find its answer again: a string, a whole
/// number or null. Ids are equal only when kind and payload are.
class JSONRPCID {
 public:
  using Value = std::variant<std::nullptr_t, std::string, std::int64_t>;

  /// The null id.
  JSONRPCID() = default;
  JSONRPCID(std::string text) : value_(std::move(text)) {}
  JSONRPCID(std::int64_t number) : value_(number) {}

  const Value& value() const { return value_; }
  bool isNull() const { return std::holds_alternative<std::nullptr_t>(value_); }

  friend bool operator==(const JSONRPCID&, const JSONRPCID&) = default;

 private:
  Value value_ = nullptr;
};

struct JSONRPCRequest {
  /// Absent when the message has no "id" key; null when it has one of no use.
  std::optional<JSONRPCID> id;
  std::string method;
  /// Empty when "params" is absent or no object.
  JSONMap params;
  /// True exactly when `id` is absent.
  bool isNotification = false;
};

struct JSONRPCError {
  long code = 0;
  /// For a person; sent as it stands.
  std::string message;
  std::optional<JSONMap> data;
};

struct JSONRPCResponse {
  /// A request without an id is answered with the null id.
  JSONRPCID id;
  std::optional<JSONMap> result;
  /// Not sent when there is a result.
  std::optional<JSONRPCError> error;
};

/// The codes that this server puts into JSONRPCError.
namespace JSONRPCErrorCode {
inline constexpr long parseError = -32700;
/// Stays inside a decode failure: the transports answer each of these with parseError.
inline constexpr long invalidRequest = -32600;
inline constexpr long methodNotFound = -32601;
inline constexpr long invalidParams = -32602;
inline constexpr long internalError = -32603;
inline constexpr long accessDenied = -32001;
inline constexpr long toolNotFound = -32002;
}  // namespace JSONRPCErrorCode

/// The message is JSON but no request. Domain "JSONRPC"; its description is what clients see.
class JSONRPCDecodeError : public DomainFailure {
 public:
  JSONRPCDecodeError(long code, std::string description)
      : DomainFailure("JSONRPC", code, std::move(description)) {}
};

}  // namespace vorlane

template <>
struct std::hash<vorlane::JSONRPCID> {
  std::size_t operator()(const vorlane::JSONRPCID& id) const noexcept {
    return std::hash<vorlane::JSONRPCID::Value>()(id.value());
  }
};
