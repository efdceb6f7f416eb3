// Any message: a request, a parse failure or a decode failure, and nothing else.
// Whatever id comes out goes into an answer that is JSON.
#include "mcp/JSONRPCCodec.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace vorlane;
  JSONRPCResponse response;
  try {
    auto request = JSONRPCCodec::decodeRequest(std::string_view(reinterpret_cast<const char*>(data), size));
    if (request.isNotification == request.id.has_value()) std::abort();
    response.id = request.id.value_or(JSONRPCID());
    // An answer lies one level deeper than the message that it repeats.
    try {
      response.result = std::move(request.params);
      parseJSON(JSONRPCCodec::encodeResponse(response));
    } catch (const JSONWriteFailure&) {
      std::abort();
    }
  } catch (const JSONRPCDecodeError& failure) {
    parseJSON(JSONRPCCodec::encodeParseError(failure.description()));
  } catch (const JSONParseFailure& failure) {
    parseJSON(JSONRPCCodec::encodeParseError(failure.description()));
  }
  return 0;
}
