#pragma once

#include "platform/URLSession.h"

#include <curl/curl.h>

#include <cstdlib>
#include <string>

namespace vorlane::bench {

/// One handle of the library, and with it one connection.
class BareCurl {
 public:
  explicit BareCurl(const std::string& caFile) : easy_(curl_easy_init()) {
    curl_easy_setopt(easy_, CURLOPT_CAINFO, caFile.c_str());
    curl_easy_setopt(easy_, CURLOPT_NOPROXY, "*");
    curl_easy_setopt(easy_, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy_, CURLOPT_WRITEFUNCTION, &BareCurl::append);
    curl_easy_setopt(easy_, CURLOPT_WRITEDATA, &body_);
  }
  ~BareCurl() { curl_easy_cleanup(easy_); }
  BareCurl(const BareCurl&) = delete;
  BareCurl& operator=(const BareCurl&) = delete;

  void send(const URLRequest& request) {
    curl_slist* headers = curl_slist_append(nullptr, "Expect:");
    for (const auto& [name, value] : request.headers)
      headers = curl_slist_append(headers, (name + ": " + value).c_str());
    curl_easy_setopt(easy_, CURLOPT_URL, request.url.c_str());
    curl_easy_setopt(easy_, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(easy_, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
    curl_easy_setopt(easy_, CURLOPT_POSTFIELDS, request.body.data());
    curl_easy_setopt(easy_, CURLOPT_CUSTOMREQUEST, request.method.c_str());
    body_.clear();
    if (curl_easy_perform(easy_) != CURLE_OK) std::abort();
    curl_slist_free_all(headers);
    long status = 0, connections = 0;
    curl_easy_getinfo(easy_, CURLINFO_RESPONSE_CODE, &status);
    curl_easy_getinfo(easy_, CURLINFO_NUM_CONNECTS, &connections);
    connections_ += connections;
    if (status < 200 || status > 299 || connections_ > 1) std::abort();
  }

 private:
  static std::size_t append(char* bytes, std::size_t size, std::size_t count, void* out) {
    static_cast<std::string*>(out)->append(bytes, size * count);
    return size * count;
  }

  CURL* easy_;
  std::string body_;
  long connections_ = 0;
};

}  // namespace vorlane::bench
