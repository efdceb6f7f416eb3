#pragma once

#include "net/HTTPRequest.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace vorlane {

/// Cuts one request out of the bytes of a connection. However the bytes are cut
/// into pieces, the request comes out with the piece that completes it, and it
/// is the one that a parse of all the bytes so far would give. Each byte is
/// looked at once. Nothing is reserved for what a header merely announces, so
/// the parser holds what was sent and no more. No size is too large. Of a body that
/// nobody wants the parser holds nothing: it is counted as it comes.
///
/// Odd input is never answered here. A header block that is not UTF-8, or whose
/// first line holds no blank, never becomes a request: the client has to give
/// up. A Content-Length that is no decimal integer of 64 bits counts as 0, and
/// so does a negative one, since no body can be shorter than nothing.
///
/// For one thread at a time.
class HTTPRequestParser {
 public:
  /// Asked when the head is there and the body is not: whether the body is wanted. The
  /// request comes without it otherwise, when the last of it has come all the same.
  using WantsBody = std::function<bool(const HTTPRequest& head)>;

  /// Takes the next bytes. Gives the request once; what comes later is ignored.
  std::optional<HTTPRequest> feed(std::string_view bytes, const WantsBody& wantsBody = nullptr);

  /// After the request: whether the client may have more to send, because bytes
  /// beyond the body have come or because the body's length was told in a way
  /// that is not understood here. Closing then needs care.
  bool clientMaySendMore() const { return clientMaySendMore_; }

 private:
  enum class State { head, body, unwantedBody, unusable, complete };

  bool takeHead();
  std::optional<HTTPRequest> complete();
  bool parseHead(std::string_view head);
  void parseHeaderLine(std::string_view line);
  void readContentLength();

  State state_ = State::head;
  /// The head while it is incomplete, then the body.
  std::string buffer_;
  /// Up to here the buffer is known to hold no end of the head.
  std::size_t searched_ = 0;
  /// Of what has not been dropped.
  std::size_t bodyLength_ = 0;
  bool clientMaySendMore_ = false;
  HTTPRequest request_;
};

}  // namespace vorlane
