#include "renderkit/video/MovieFile.h"

#include "renderkit/Failure.h"

#include <system_error>

namespace renderkit {

MovieFile::MovieFile(const std::filesystem::path& path, const AVCodecParameters& video,
                     std::int32_t timescale, const std::string& comment)
    : timescale_(timescale) {
  std::error_code ignored;
  std::filesystem::remove(path, ignored);
  const auto url = av::url(path);
  const auto check = [&](int status) {
    if (status >= 0) return;
    // The destructor does not run for what was not made.
    if (format_ != nullptr) avio_closep(&format_->pb);
    avformat_free_context(format_);
    throw Failure(path.string() + ": " + av::message(status));
  };
  check(avformat_alloc_output_context2(&format_, nullptr, "mp4", url.c_str()));
  format_->flags |= AVFMT_FLAG_BITEXACT;
  if (!comment.empty()) av_dict_set(&format_->metadata, "comment", comment.c_str(), 0);
  auto* stream = avformat_new_stream(format_, nullptr);
  check(stream == nullptr ? AVERROR(ENOMEM) : avcodec_parameters_copy(stream->codecpar, &video));
  stream->codecpar->codec_tag = MKTAG('h', 'v', 'c', '1');
  stream->time_base = {1, timescale};
  stream->avg_frame_rate = {timescale, 1000};
  check(avio_open(&format_->pb, url.c_str(), AVIO_FLAG_WRITE));
  // The index goes to the front, and times are exact with the edit list and without it: that
  // counts in the same ticks as the track.
  AVDictionary* options = nullptr;
  av_dict_set(&options, "movflags", "+faststart+negative_cts_offsets", 0);
  av_dict_set_int(&options, "video_track_timescale", timescale, 0);
  av_dict_set_int(&options, "movie_timescale", timescale, 0);
  const auto status = avformat_write_header(format_, &options);
  av_dict_free(&options);
  check(status);
}

MovieFile::~MovieFile() {
  if (!finished_) avio_closep(&format_->pb);
  avformat_free_context(format_);
}

void MovieFile::require(int status) const {
  if (status >= 0 && format_->pb != nullptr) status = format_->pb->error;
  if (status < 0) throw Failure(av::message(status));
}

void MovieFile::write(AVPacket& packet) {
  packet.stream_index = 0;
  packet.duration = 1;
  av_packet_rescale_ts(&packet, {1000, timescale_}, {1, timescale_});
  require(av_interleaved_write_frame(format_, &packet));
}

void MovieFile::finish() {
  require(av_write_trailer(format_));
  finished_ = true;
  const auto status = avio_closep(&format_->pb);
  if (status < 0) throw Failure(av::message(status));
}

}  // namespace renderkit
