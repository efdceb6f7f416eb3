#include "renderkit/video/AV.h"

namespace renderkit::av {

std::string message(int error) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(error, text, sizeof text);
  return text;
}

std::string url(const std::filesystem::path& path) {
  return "file:" + path.native();
}

void beQuiet() {
  av_log_set_level(AV_LOG_QUIET);
}

}  // namespace renderkit::av
