#include "platform/linux/CurlTrust.h"

#include "base/Failure.h"
#include "platform/linux/Files.h"

#include <curl/curl.h>
#include <fcntl.h>
#include <fmt/format.h>

#include <cerrno>
#include <filesystem>

namespace vorlane {
namespace {

constexpr std::size_t bundleLimit = std::size_t{16} << 20;

std::string readBundle(const std::string& path) {
  std::string bytes;
  const FileDescriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  const int error = fd ? files::readAll(fd.get(), bundleLimit, bytes) : errno;
  if (error != 0)
    throw Failure(withErrno(fmt::format("The certificate file {} cannot be read", path), error));
  if (bytes.find("-----BEGIN") == std::string::npos) {
    throw Failure(fmt::format("The certificate file {} holds no PEM certificate.", path));
  }
  return bytes;
}

}  // namespace

CurlTrust::CurlTrust(const std::optional<std::string>& caFile) {
  const auto extra = caFile ? readBundle(*caFile) : std::string();
  const auto* defaults = curl_version_info(CURLVERSION_NOW);
  std::error_code none;
  if (defaults->capath != nullptr && std::filesystem::is_directory(defaults->capath, none)) {
    systemFolder_ = defaults->capath;
    extraFile_ = caFile.value_or("");
    return;
  }
  if (!caFile) return;
  if (defaults->cainfo != nullptr && std::filesystem::exists(defaults->cainfo, none)) {
    merged_ = readBundle(defaults->cainfo) + "\n";
  }
  merged_ += extra;
}

void CurlTrust::install(void* easy) const {
  if (!systemFolder_.empty()) {
    curl_easy_setopt(easy, CURLOPT_CAPATH, systemFolder_.c_str());
    curl_easy_setopt(easy, CURLOPT_CAINFO, extraFile_.empty() ? nullptr : extraFile_.c_str());
    return;
  }
  if (merged_.empty()) return;
  // libcurl takes the blob by a pointer that is not const, and only reads it.
  curl_blob blob{.data = const_cast<char*>(merged_.data()), .len = merged_.size(), .flags = CURL_BLOB_NOCOPY};
  curl_easy_setopt(easy, CURLOPT_CAINFO_BLOB, &blob);
}

}  // namespace vorlane
