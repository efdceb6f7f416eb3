// One line of a client, whole and in pieces: the launcher takes it for what the
// agent takes it for, and finds the request again by the answer's id.
#include "base/JSON.h"
#include "launcher/MessageID.h"
#include "launcher/MessageScanner.h"
#include "mcp/JSONRPCCodec.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>

namespace {

using vorlane::Message;

Message scanned(std::string_view line, std::size_t piece) {
  vorlane::MessageScanner scanner;
  while (!line.empty()) {
    scanner.feed(line.substr(0, piece));
    if (!scanner.midLine()) std::abort();
    line.remove_prefix(std::min(piece, line.size()));
  }
  auto message = scanner.finish();
  if (scanner.midLine()) std::abort();
  return message;
}

void compareWithAgent(std::string_view line, const Message& message) {
  vorlane::JSONRPCRequest request;
  try {
    request = vorlane::JSONRPCCodec::decodeRequest(line);
  } catch (const vorlane::Failure&) {
    return;  // the agent looks deeper
  }
  using Kind = Message::Kind;
  if (message.kind != (request.isNotification ? Kind::notification : Kind::request)) std::abort();
  if (request.isNotification) return;
  vorlane::JSONRPCResponse response;
  response.id = *request.id;
  response.result = vorlane::JSONMap{{"id", "another"}};
  if (vorlane::answeredKey(vorlane::JSONRPCCodec::encodeResponse(response)) != message.key) std::abort();
  // It goes into an error as it stands.
  vorlane::parseJSON("[" + message.id + "]");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view line(reinterpret_cast<const char*>(data), size);
  line = line.substr(0, line.find('\n'));
  const auto message = scanned(line, size + 1);
  for (const std::size_t piece : {1, 3}) {
    const auto other = scanned(line, piece);
    if (other.kind != message.kind || other.id != message.id || other.key != message.key) std::abort();
  }
  compareWithAgent(line, message);
  vorlane::answeredKey(line);
  return 0;
}
