#include "net/HTTPRequestParser.h"

#include "base/Identifiers.h"
#include "base/Text.h"

#include <utility>

namespace vorlane {
namespace {

constexpr std::string_view lineEnd = "\r\n";
constexpr std::string_view headEnd = "\r\n\r\n";

std::string_view withoutBlanks(std::string_view text) {
  const auto first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

}  // namespace

std::optional<HTTPRequest> HTTPRequestParser::feed(std::string_view bytes, const WantsBody& wantsBody) {
  switch (state_) {
    case State::unusable:
      return std::nullopt;
    case State::complete:
      clientMaySendMore_ = clientMaySendMore_ || !bytes.empty();
      return std::nullopt;
    case State::head:
      buffer_.append(bytes);
      if (!takeHead()) return std::nullopt;
      if (buffer_.size() < bodyLength_ && wantsBody && !wantsBody(request_)) {
        state_ = State::unwantedBody;
        bodyLength_ -= buffer_.size();
        buffer_ = {};
      }
      break;
    case State::unwantedBody:
      if (bytes.size() < bodyLength_) {
        bodyLength_ -= bytes.size();
        return std::nullopt;
      }
      bytes.remove_prefix(std::exchange(bodyLength_, 0));
      clientMaySendMore_ = clientMaySendMore_ || !bytes.empty();
      return complete();
    case State::body:
      buffer_.append(bytes);
      break;
  }
  if (buffer_.size() < bodyLength_) return std::nullopt;

  if (buffer_.size() > bodyLength_) {
    clientMaySendMore_ = true;
    buffer_.resize(bodyLength_);
  }
  return complete();
}

std::optional<HTTPRequest> HTTPRequestParser::complete() {
  state_ = State::complete;
  request_.body = std::move(buffer_);
  return std::move(request_);
}

/// Looks for the end of the head and parses it; the buffer then holds what has
/// come of the body. False while the head is incomplete, or when it is unusable.
bool HTTPRequestParser::takeHead() {
  const auto end = buffer_.find(headEnd, searched_);
  if (end == std::string::npos) {
    // The delimiter may have begun in the last three bytes.
    searched_ = buffer_.size() < headEnd.size() ? 0 : buffer_.size() - (headEnd.size() - 1);
    return false;
  }
  if (!parseHead(std::string_view(buffer_).substr(0, end))) {
    state_ = State::unusable;
    buffer_ = {};
    return false;
  }
  state_ = State::body;
  buffer_.erase(0, end + headEnd.size());
  return true;
}

bool HTTPRequestParser::parseHead(std::string_view head) {
  if (!isValidUTF8(head)) return false;

  const auto firstEnd = head.find(lineEnd);
  const auto first = head.substr(0, firstEnd);
  const auto blank = first.find(' ');
  if (blank == std::string_view::npos) return false;
  // Each single blank separates, so two in a row leave an empty path between them.
  const auto rest = first.substr(blank + 1);
  request_.method = first.substr(0, blank);
  request_.path = rest.substr(0, rest.find(' '));

  for (auto at = firstEnd; at != std::string_view::npos;) {
    const auto start = at + lineEnd.size();
    at = head.find(lineEnd, start);
    parseHeaderLine(head.substr(start, at == std::string_view::npos ? at : at - start));
  }
  readContentLength();
  return true;
}

/// A line without a colon, or with nothing before or after the first one, is
/// skipped: it does not even replace an earlier header of its name.
void HTTPRequestParser::parseHeaderLine(std::string_view line) {
  const auto colon = line.find(':');
  if (colon == std::string_view::npos || colon == 0 || colon + 1 == line.size()) return;
  request_.headers.insert_or_assign(asciiLowercased(line.substr(0, colon)),
                                    std::string(withoutBlanks(line.substr(colon + 1))));
}

void HTTPRequestParser::readContentLength() {
  clientMaySendMore_ = request_.headers.contains("transfer-encoding");
  const auto header = request_.headers.find("content-length");
  if (header == request_.headers.end()) return;
  const auto length = decimalInteger(header->second);
  if (length && *length >= 0) {
    bodyLength_ = static_cast<std::size_t>(*length);
  } else {
    clientMaySendMore_ = true;
  }
}

}  // namespace vorlane
