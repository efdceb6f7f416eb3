#include "net/HTTPMessage.h"

#include "net/HTTPResponse.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <span>
#include <utility>

namespace vorlane {
namespace {

using Reason = std::pair<int, std::string_view>;

constexpr std::array<Reason, 3> plainReasons{{{200, "OK"}, {404, "Not Found"}, {401, "Unauthorized"}}};

constexpr std::array<Reason, 6> responseReasons{{{200, "OK"},
                                                 {202, "Accepted"},
                                                 {204, "No Content"},
                                                 {400, "Bad Request"},
                                                 {404, "Not Found"},
                                                 {500, "Internal Server Error"}}};

std::string_view reasonFor(int status, std::span<const Reason> table, std::string_view otherwise) {
  const auto found = std::ranges::find(table, status, &Reason::first);
  return found == table.end() ? otherwise : found->second;
}

}  // namespace

HTTPMessage plainMessage(int status, std::string body, std::string_view contentType) {
  auto head =
      fmt::format("HTTP/1.1 {} {}\r\nContent-Type: {}\r\nContent-Length: {}\r\nConnection: close\r\n\r\n",
                  status, reasonFor(status, plainReasons, "Bad Request"), contentType, body.size());
  return {std::move(head), std::move(body)};
}

HTTPMessage responseMessage(HTTPResponse response) {
  if (response.status == 204) response.body.clear();
  auto head =
      fmt::format("HTTP/1.1 {} {}\r\n", response.status, reasonFor(response.status, responseReasons, "OK"));
  for (const auto& [name, value] : response.headers) {
    fmt::format_to(std::back_inserter(head), "{}: {}\r\n", name, value);
  }
  fmt::format_to(std::back_inserter(head), "Content-Length: {}\r\nConnection: close\r\n\r\n",
                 response.body.size());
  return {std::move(head), std::move(response.body)};
}

}  // namespace vorlane
