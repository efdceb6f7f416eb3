#pragma once

#include "mcp/JSONRPC.h"
#include "net/LineBuffer.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

/// JSON-RPC 2.0 as far as this server goes: one request per message, no batches,
/// object parameters only. Pure; callable from any thread.
namespace vorlane::JSONRPCCodec {

/// Reads one message. Throws JSONParseFailure when the bytes are no JSON
/// document, and JSONRPCDecodeError when the document is no request.
JSONRPCRequest decodeRequest(std::string_view message);

/// Writes one message with sorted keys and without a newline. Throws
/// JSONWriteFailure when the payload holds a value without a JSON form.
std::string encodeResponse(const JSONRPCResponse& response);

/// The answer to a message that could not be taken: the null id, the code
/// parseError and this text. Throws as encodeResponse does.
std::string encodeParseError(std::string description);

/// Cuts the messages of a stream apart.
using vorlane::extractLine;

}  // namespace vorlane::JSONRPCCodec
