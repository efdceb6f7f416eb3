#include "devcloud/CloudFixture.h"

#include <curl/curl.h>

#include <cstdlib>

namespace vorlane::devcloud {
namespace {

std::size_t append(char* bytes, std::size_t size, std::size_t count, void* out) {
  static_cast<std::string*>(out)->append(bytes, size * count);
  return size * count;
}

std::string madeFolder() {
  std::string pattern = (std::filesystem::temp_directory_path() / "devcloud test XXXXXX").string();
  return mkdtemp(pattern.data());
}

}  // namespace

std::string Reply::at(std::string_view path) const {
  const JSONValue value = parseJSONMap(body);
  boost::system::error_code absent;
  const JSONValue* found = value.find_pointer("/" + std::string(path), absent);
  if (!found) return "";
  return found->is_string() ? std::string(found->get_string()) : writeJSON(*found);
}

CloudFixture::CloudFixture() : folder(madeFolder()) {
  curl_global_init(CURL_GLOBAL_DEFAULT);
  start();
  cloud.call(&People::put, {.sub = demo, .email = "demo@vorlane.test", .name = "Demo", .mcpAccess = true});
  token = cloud.call(&Identity::issue, demo, {}).accessToken;
}

CloudFixture::~CloudFixture() {
  cloud.stop();
  std::filesystem::remove_all(folder);
}

void CloudFixture::start() {
  cloud.start();
  secureBase_ = cloud.base();
  plainBase_ = cloud.plainBase();
}

Reply CloudFixture::send(const Call& call, bool secure) {
  Reply reply;
  CURL* curl = curl_easy_init();
  curl_slist* headers = curl_slist_append(nullptr, "Expect:");
  for (const auto& header : call.headers) headers = curl_slist_append(headers, header.c_str());
  const std::string url = (secure ? secureBase_ : plainBase_) + call.path;
  curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl, CURLOPT_CAINFO, cloud.caFile().c_str());
  curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, call.method.c_str());
  curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
  curl_easy_setopt(curl, CURLOPT_TIMEOUT, 30L);
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  if (!call.body.empty()) curl_easy_setopt(curl, CURLOPT_POSTFIELDS, call.body.c_str());
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, append);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, &reply.body);
  curl_easy_setopt(curl, CURLOPT_HEADERDATA, &reply.head);
  reply.failed = curl_easy_perform(curl) != CURLE_OK;
  curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &reply.status);
  curl_slist_free_all(headers);
  curl_easy_cleanup(curl);
  return reply;
}

Reply CloudFixture::sendAs(const std::string& accessToken, Call call) {
  call.headers.push_back("Authorization: Bearer " + accessToken);
  return send(call);
}

Reply CloudFixture::control(const std::string& method, const std::string& path, const std::string& body) {
  return send({method, "/__control/" + path, body}, false);
}

Reply CloudFixture::refresh(const std::string& refreshToken) {
  const std::string form = "grant_type=refresh_token&client_id=" + std::string(clientID);
  return send({"POST", "/oauth/token", form + "&refresh_token=" + refreshToken});
}

}  // namespace vorlane::devcloud
