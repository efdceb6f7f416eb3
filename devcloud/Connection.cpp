#include "devcloud/Connection.h"

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/ssl.hpp>

#include <sstream>

namespace vorlane::devcloud {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using tcp = asio::ip::tcp;
using ErrorCode = boost::system::error_code;

struct TLSContext {
  asio::ssl::context context{asio::ssl::context::tls_server};
};

namespace {

constexpr auto quiet = asio::as_tuple(asio::use_awaitable);
constexpr std::uint64_t bodyLimit = std::uint64_t{256} << 20;
constexpr std::uint32_t headLimit = 64 << 10;
/// How long a client may take to send a request, or leave its connection unused.
constexpr auto idleLimit = std::chrono::minutes(2);
constexpr auto writeLimit = std::chrono::minutes(2);
constexpr auto closeLimit = std::chrono::seconds(2);

using Parser = http::request_parser<http::string_body>;
using Message = http::response<http::string_body>;

Request requestFrom(http::request<http::string_body>& message, bool secure) {
  Request request;
  request.secure = secure;
  request.method = std::string(message.method_string());
  const std::string target(message.target());
  const std::size_t mark = std::min(target.find('?'), target.size());
  request.path = target.substr(0, mark);
  request.query = target.substr(std::min(mark + 1, target.size()));
  for (const auto& field : message) {
    request.headers.emplace_back(std::string(field.name_string()), std::string(field.value()));
  }
  request.body = std::move(message.body());
  return request;
}

Message messageFrom(Response& response, unsigned version, bool keepAlive) {
  Message message(static_cast<http::status>(response.status), version);
  for (const auto& [name, value] : response.headers) message.insert(name, value);
  message.set(http::field::content_type, response.contentType);
  message.keep_alive(keepAlive);
  // These two statuses have no body.
  if (response.status != 204 && response.status != 304) message.body() = std::move(response.body);
  message.prepare_payload();
  return message;
}

/// The answer to bytes that are no request, when the client may still be listening.
std::optional<int> statusFor(const ErrorCode& error) {
  if (error == http::error::end_of_stream || error == http::error::partial_message) return std::nullopt;
  if (error == http::error::body_limit) return 413;
  if (error == http::error::header_limit) return 431;
  if (error.category() == http::make_error_code(http::error::bad_method).category()) return 400;
  return std::nullopt;
}

void reset(tcp::socket& socket) {
  ErrorCode ignored;
  socket.set_option(asio::socket_base::linger(true, 0), ignored);
  socket.close(ignored);
}

/// Sends the head and half of the body, then closes without a word more.
template <class Stream>
Task<> writeHalf(Stream& stream, const Message& message) {
  std::ostringstream whole;
  whole << message;
  std::string bytes = std::move(whole).str();
  bytes.resize(bytes.size() - (message.body().size() + 1) / 2);
  co_await asio::async_write(stream, asio::buffer(bytes), quiet);
  ErrorCode ignored;
  beast::get_lowest_layer(stream).socket().close(ignored);
}

/// One request into `parser`. A client that has announced a large body waits for leave to send it.
template <class Stream>
Task<ErrorCode> readRequest(Stream& stream, beast::flat_buffer& buffer, Parser& parser) {
  parser.body_limit(bodyLimit);
  parser.header_limit(headLimit);
  beast::get_lowest_layer(stream).expires_after(idleLimit);
  const auto [headError, headBytes] = co_await http::async_read_header(stream, buffer, parser, quiet);
  if (headError) co_return headError;
  if (beast::iequals(parser.get()[http::field::expect], "100-continue")) {
    static constexpr std::string_view leave = "HTTP/1.1 100 Continue\r\n\r\n";
    const auto [error, count] = co_await asio::async_write(stream, asio::buffer(leave), quiet);
    if (error) co_return error;
  }
  const auto [error, count] = co_await http::async_read(stream, buffer, parser, quiet);
  co_return error;
}

/// What of a request its answer depends on.
struct Manner {
  unsigned version = 11;
  bool keepAlive = false;
  /// A HEAD is answered with the head that a GET would get.
  bool headOnly = false;
};

/// False when the connection is over.
template <class Stream>
Task<bool> answer(Stream& stream, Response response, Manner manner) {
  const Cut cut = response.cut;
  if (cut == Cut::beforeAnswer) {
    reset(beast::get_lowest_layer(stream).socket());
    co_return false;
  }
  Message message = messageFrom(response, manner.version, manner.keepAlive);
  if (manner.headOnly) message.body().clear();
  beast::get_lowest_layer(stream).expires_after(writeLimit);
  if (cut == Cut::inBody) {
    co_await writeHalf(stream, message);
    co_return false;
  }
  const auto [error, count] = co_await http::async_write(stream, message, quiet);
  co_return !error && manner.keepAlive;
}

/// Serves requests until the connection is over; true when it is to be closed in good order.
template <class Stream>
Task<bool> converse(Stream& stream, bool secure, const RequestHandler& handler) {
  beast::flat_buffer buffer;
  for (;;) {
    Parser parser;
    const ErrorCode error = co_await readRequest(stream, buffer, parser);
    if (error) {
      const auto status = statusFor(error);
      if (!status) co_return error == http::error::end_of_stream;
      co_await answer(stream, apiError(*status, error.message()).response(), {});
      co_return true;
    }
    const Manner manner{.version = parser.get().version(),
                        .keepAlive = parser.get().keep_alive(),
                        .headOnly = parser.get().method() == http::verb::head};
    Request request = requestFrom(parser.get(), secure);
    beast::get_lowest_layer(stream).expires_never();
    Response response = co_await handler(std::move(request));
    const bool orderly = response.cut == Cut::none;
    if (!co_await answer(stream, std::move(response), manner)) co_return orderly;
  }
}

}  // namespace

std::unique_ptr<TLSContext, void (*)(TLSContext*)> makeTLSContext(const Certificates& certificates) {
  std::unique_ptr<TLSContext, void (*)(TLSContext*)> tls(new TLSContext,
                                                         [](TLSContext* context) { delete context; });
  try {
    tls->context.set_options(asio::ssl::context::default_workarounds | asio::ssl::context::no_tlsv1 |
                             asio::ssl::context::no_tlsv1_1);
    tls->context.use_certificate_chain(asio::buffer(certificates.server));
    tls->context.use_private_key(asio::buffer(certificates.serverKey), asio::ssl::context::pem);
  } catch (const boost::system::system_error& error) {
    throw Failure(std::string("the certificates do not fit: ") + error.what());
  }
  return tls;
}

Task<> serveSecure(tcp::socket socket, TLSContext& tls, const RequestHandler& handler) {
  beast::ssl_stream<beast::tcp_stream> stream(beast::tcp_stream(std::move(socket)), tls.context);
  beast::get_lowest_layer(stream).socket().set_option(tcp::no_delay(true));
  beast::get_lowest_layer(stream).expires_after(idleLimit);
  const auto [error] = co_await stream.async_handshake(asio::ssl::stream_base::server, quiet);
  if (error) co_return;
  if (!co_await converse(stream, true, handler)) co_return;
  beast::get_lowest_layer(stream).expires_after(closeLimit);
  co_await stream.async_shutdown(quiet);
}

Task<> servePlain(tcp::socket socket, const RequestHandler& handler) {
  beast::tcp_stream stream(std::move(socket));
  stream.socket().set_option(tcp::no_delay(true));
  if (!co_await converse(stream, false, handler)) co_return;
  ErrorCode ignored;
  stream.socket().shutdown(tcp::socket::shutdown_send, ignored);
}

}  // namespace vorlane::devcloud
