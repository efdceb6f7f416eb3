#include "platform/linux/CurlTransfer.h"

#include "base/Text.h"

#include <curl/curl.h>
#include <fmt/format.h>
#include <sys/socket.h>

#include <algorithm>

namespace vorlane {
namespace {

constexpr long maximumRedirects = 16;
constexpr std::size_t maximumHeaderBytes = std::size_t{1} << 20;
constexpr std::size_t countedStep = std::size_t{64} << 10;
constexpr char protocols[] = "http,https";

/// The characters of a method and of a header's name.
bool isToken(std::string_view text) {
  constexpr std::string_view marks = "!#$%&'*+-.^_`|~";
  return !text.empty() && std::ranges::all_of(text, [&](char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
           marks.find(c) != std::string_view::npos;
  });
}

bool isHeaderValue(std::string_view text) {
  return text.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos;
}

/// The host of an http or https address. It alone may appear in failures: the
/// rest of an address may hold secrets.
std::string hostOf(const std::string& address) {
  const TransportFailure unreadable(CURLE_URL_MALFORMAT,
                                    "The address of the request is no http or https address.");
  const std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> url(curl_url(), &curl_url_cleanup);
  if (address.find('\0') != std::string::npos) throw unreadable;
  if (curl_url_set(url.get(), CURLUPART_URL, address.c_str(), 0) != CURLUE_OK) throw unreadable;
  const auto part = [&](CURLUPart which) {
    char* text = nullptr;
    if (curl_url_get(url.get(), which, &text, 0) != CURLUE_OK) throw unreadable;
    const std::unique_ptr<char, decltype(&curl_free)> owner(text, &curl_free);
    return std::string(text);
  };
  const auto scheme = part(CURLUPART_SCHEME);
  if (scheme != "http" && scheme != "https") throw unreadable;
  return part(CURLUPART_HOST);
}

/// Sockets that no child process inherits.
curl_socket_t openSocket(void*, curlsocktype, curl_sockaddr* address) {
  return ::socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

}  // namespace

CurlTransfer::CurlTransfer(URLRequest request, const CurlTrust& trust, const std::string& noProxy)
    : request_(std::move(request)), host_(hostOf(request_.url)) {
  if (!isToken(request_.method))
    throw TransportFailure(CURLE_BAD_FUNCTION_ARGUMENT, "The request's method is not valid.");
  easy_.reset(curl_easy_init());
  if (!easy_) throw TransportFailure(CURLE_OUT_OF_MEMORY, "No memory is left for the request.");
  configure(trust, noProxy);
  configureBody();
  addHeaders();
}

void CurlTransfer::FreeHandle::operator()(void* easy) const {
  curl_easy_cleanup(easy);
}

void CurlTransfer::FreeList::operator()(curl_slist* list) const {
  curl_slist_free_all(list);
}

void CurlTransfer::configure(const CurlTrust& trust, const std::string& noProxy) {
  auto* const easy = easy_.get();
  curl_easy_setopt(easy, CURLOPT_URL, request_.url.c_str());
  curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, protocols);
  curl_easy_setopt(easy, CURLOPT_REDIR_PROTOCOLS_STR, protocols);
  curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, request_.followRedirects ? 1L : 0L);
  curl_easy_setopt(easy, CURLOPT_MAXREDIRS, maximumRedirects);
  const auto limit = std::clamp<std::int64_t>(request_.timeout.count(), 1, 24 * 3'600'000);
  curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, static_cast<long>(limit));
  curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(limit));
  if (request_.idleTimeout.count() > 0) {
    curl_easy_setopt(easy, CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(easy, CURLOPT_LOW_SPEED_TIME, static_cast<long>(request_.idleTimeout.count()));
  }
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  // A name that is still being resolved must not hold up the thread, and with it
  // every other transfer, when this one ends.
  curl_easy_setopt(easy, CURLOPT_QUICK_EXIT, 1L);
  curl_easy_setopt(easy, CURLOPT_NOPROXY, noProxy.c_str());
  curl_easy_setopt(easy, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
  curl_easy_setopt(easy, CURLOPT_ACCEPT_ENCODING, "gzip, deflate");
  curl_easy_setopt(easy, CURLOPT_OPENSOCKETFUNCTION, &openSocket);
  curl_easy_setopt(easy, CURLOPT_PRIVATE, this);
  curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, &CurlTransfer::headerArrived);
  curl_easy_setopt(easy, CURLOPT_HEADERDATA, this);
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &CurlTransfer::bodyArrived);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, this);
  trust.install(easy);
}

void CurlTransfer::configureBody() {
  auto* const easy = easy_.get();
  const auto& method = request_.method;
  const bool usuallyHasBody = method == "POST" || method == "PUT" || method == "PATCH";
  // The methods that libcurl knows are set as such, since a redirect may have to
  // turn a POST into a GET.
  if (usuallyHasBody || !request_.body.empty()) {
    curl_easy_setopt(easy, CURLOPT_POST, 1L);
    curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request_.body.size()));
    if (!request_.retryOnStaleConnection) {
      // Read by a callback that cannot be rewound, so that the library cannot start again.
      curl_easy_setopt(easy, CURLOPT_READFUNCTION, &CurlTransfer::bodyWanted);
      curl_easy_setopt(easy, CURLOPT_READDATA, this);
    } else {
      curl_easy_setopt(easy, CURLOPT_POSTFIELDS, request_.body.data());
    }
    if (method != "POST") curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, method.c_str());
  } else if (method == "HEAD") {
    curl_easy_setopt(easy, CURLOPT_NOBODY, 1L);
  } else if (method != "GET") {
    curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, method.c_str());
  }
}

void CurlTransfer::addHeader(const std::string& line) {
  auto* const longer = curl_slist_append(headers_.get(), line.c_str());
  if (longer == nullptr) throw TransportFailure(CURLE_OUT_OF_MEMORY, "No memory is left for the request.");
  [[maybe_unused]] auto* const same = headers_.release();
  headers_.reset(longer);
}

void CurlTransfer::addHeaders() {
  bool typed = false;
  for (const auto& [name, value] : request_.headers) {
    if (!isToken(name) || !isHeaderValue(value)) {
      throw TransportFailure(
          CURLE_BAD_FUNCTION_ARGUMENT,
          fmt::format("The header {} is not valid.", isToken(name) ? name : "of the request"));
    }
    typed = typed || asciiLowercased(name) == "content-type";
    // libcurl writes "Name;" as a header without a value and drops "Name:".
    addHeader(value.empty() ? name + ";" : name + ": " + value);
  }
  // Without a value these take away what libcurl would add of its own.
  addHeader("Expect:");
  if (!typed) addHeader("Content-Type:");
  curl_easy_setopt(easy_.get(), CURLOPT_HTTPHEADER, headers_.get());
}

std::size_t CurlTransfer::headerArrived(char* bytes, std::size_t size, std::size_t count, void* self) {
  const std::string_view line(bytes, size * count);
  return static_cast<CurlTransfer*>(self)->takeHeader(line) ? line.size() : 0;
}

std::size_t CurlTransfer::bodyArrived(char* bytes, std::size_t size, std::size_t count, void* self) {
  const std::string_view piece(bytes, size * count);
  return static_cast<CurlTransfer*>(self)->takeBody(piece) ? piece.size() : CURL_WRITEFUNC_ERROR;
}

std::size_t CurlTransfer::bodyWanted(char* bytes, std::size_t size, std::size_t count, void* self) {
  auto& transfer = *static_cast<CurlTransfer*>(self);
  const auto taken = transfer.request_.body.copy(bytes, size * count, transfer.bodySent_);
  transfer.bodySent_ += taken;
  return taken;
}

bool CurlTransfer::takeHeader(std::string_view line) {
  headerBytes_ += line.size();
  if (headerBytes_ > maximumHeaderBytes) {
    ownFailure_ = "its headers are too long";
    return false;
  }
  while (line.ends_with('\n') || line.ends_with('\r')) line.remove_suffix(1);
  if (line.starts_with("HTTP/")) {
    // The answer before was interim or a redirect.
    response_.headers.clear();
    return true;
  }
  const auto colon = line.find(':');
  if (colon == std::string_view::npos) return true;
  auto value = line.substr(colon + 1);
  const auto first = value.find_first_not_of(" \t");
  value.remove_prefix(first == std::string_view::npos ? value.size() : first);
  value = value.substr(0, value.find_last_not_of(" \t") + 1);
  response_.headers.emplace_back(line.substr(0, colon), value);
  return true;
}

void CurlTransfer::holdIn(AnswerMemory& memory, MakeRoom makeRoom) {
  memory_ = memory.share();
  makeRoom_ = std::move(makeRoom);
}

void CurlTransfer::giveUp() {
  givenUp_ = true;
  ownFailure_ = "the answers under way are too long together";
  response_.body = {};
  memory_.reset();
}

/// Counts the body as so long, in steps.
bool CurlTransfer::reserve(std::size_t bytes) {
  if (bytes <= held()) return true;
  const auto steps = (bytes + countedStep - 1) / countedStep;
  return makeRoom_(*this, std::min(steps * countedStep, request_.maximumBody));
}

bool CurlTransfer::takeBody(std::string_view bytes) {
  if (givenUp_) return false;
  if (bytes.size() > request_.maximumBody - response_.body.size()) {
    ownFailure_ = fmt::format("its body is longer than {} bytes", request_.maximumBody);
    return false;
  }
  if (!reserve(response_.body.size() + bytes.size())) {
    giveUp();
    return false;
  }
  response_.body.append(bytes);
  return true;
}

TransportFailure CurlTransfer::failureOf(int code) const {
  if (!ownFailure_.empty()) {
    return {code, fmt::format("The answer of {} was refused: {}.", host_, ownFailure_)};
  }
  return {code, fmt::format("The request to {} failed: {}.", host_,
                            curl_easy_strerror(static_cast<CURLcode>(code)))};
}

void CurlTransfer::finish(int result) {
  if (result != CURLE_OK) return fail(std::make_exception_ptr(failureOf(result)));
  auto finish = std::exchange(finish_, nullptr);
  if (!finish) return;
  long status = 0;
  curl_easy_getinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &status);
  response_.status = static_cast<int>(status);
  const char* url = nullptr;
  curl_easy_getinfo(easy_.get(), CURLINFO_EFFECTIVE_URL, &url);
  response_.url = url != nullptr ? url : request_.url;
  response_.memory = std::move(memory_);
  finish(nullptr, std::move(response_));
}

void CurlTransfer::fail(std::exception_ptr failure) {
  response_.body = {};
  memory_.reset();
  if (auto finish = std::exchange(finish_, nullptr)) finish(std::move(failure), URLResponse{});
}

}  // namespace vorlane
