#include "devcloud/CloudFixture.h"

#include <curl/curl.h>

#include <cstdlib>

namespace vorlane::devcloud {
namespace {

std::size_t append(char* bytes, std::size_t size, std::size_t count, void* out) {
  static_cast<std::string*>(out)->append(bytes, size * count);
  return size * count;
}

}  // namespace

std::string Reply::at(std::string_view path) const {
  JSONValue value = json();
  while (!path.empty()) {
    const std::string_view key = path.substr(0, path.find('.'));
    path.remove_prefix(std::min(path.size(), key.size() + 1));
    const JSONMap* map = value.if_object();
    if (!map || !map->contains(key)) return "";
    value = JSONValue(map->at(key));
  }
  return value.is_string() ? std::string(value.get_string()) : writeJSON(value);
}

TemporaryFolder::TemporaryFolder() {
  std::string pattern = (std::filesystem::temp_directory_path() / "devcloud test XXXXXX").string();
  path = mkdtemp(pattern.data());
}

TemporaryFolder::~TemporaryFolder() {
  std::filesystem::remove_all(path);
}

CloudFixture::CloudFixture()
    : cloud({.directory = folder.path / "cloud", .clock = [this] { return time.load(); }}) {
  static const CURLcode initialized = curl_global_init(CURL_GLOBAL_DEFAULT);
  EXPECT_EQ(initialized, CURLE_OK);
  start();
  cloud.putPerson({.sub = demo, .email = "demo@vorlane.test", .name = "Demo", .mcpAccess = true});
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
  const std::string authority = cloud.caFile().string();
  curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl, CURLOPT_CAINFO, authority.c_str());
  curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, call.method.c_str());
  curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
  curl_easy_setopt(curl, CURLOPT_TIMEOUT, 30L);
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  if (!call.body.empty()) {
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, static_cast<long>(call.body.size()));
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, call.body.c_str());
  }
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, append);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, &reply.body);
  curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, append);
  curl_easy_setopt(curl, CURLOPT_HEADERDATA, &reply.head);
  const CURLcode result = curl_easy_perform(curl);
  if (result != CURLE_OK) reply.failure = curl_easy_strerror(result);
  curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &reply.status);
  curl_slist_free_all(headers);
  curl_easy_cleanup(curl);
  return reply;
}

Reply CloudFixture::control(const std::string& method, const std::string& path, const std::string& body) {
  return send({method, "/__control/" + path, {}, body}, false);
}

Reply CloudFixture::sendAs(const std::string& accessToken, Call call) {
  call.headers.push_back("Authorization: Bearer " + accessToken);
  return send(call);
}

Reply CloudFixture::refresh(const std::string& refreshToken) {
  return send(
      {"POST",
       "/oauth/token",
       {"Content-Type: application/x-www-form-urlencoded"},
       "grant_type=refresh_token&client_id=" + std::string(clientID) + "&refresh_token=" + refreshToken});
}

}  // namespace vorlane::devcloud
