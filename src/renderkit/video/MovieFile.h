#pragma once

#include "renderkit/video/AV.h"

#include <cstdint>
#include <filesystem>
#include <string>

namespace renderkit {

/// An MP4 file with one HEVC track that is being written. Used by one thread at a time.
class MovieFile {
 public:
  /// Removes what is at the path and opens it. Throws a Failure with the system's own words.
  MovieFile(const std::filesystem::path& path, const AVCodecParameters& video, std::int32_t timescale,
            const std::string& comment);
  /// Leaves an unfinished file as it is.
  ~MovieFile();
  MovieFile(const MovieFile&) = delete;
  MovieFile& operator=(const MovieFile&) = delete;

  /// Takes over the packet's content, whose times are in {1000, timescale}. Throws a Failure.
  void write(AVPacket& packet);
  /// Writes the index and closes the file. Throws a Failure.
  void finish();

 private:
  void require(int status) const;

  AVFormatContext* format_ = nullptr;
  std::int32_t timescale_;
  bool finished_ = false;
};

}  // namespace renderkit
