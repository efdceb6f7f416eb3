#include "renderkit/video/ClipJoiner.h"

#include "renderkit/Failure.h"
#include "renderkit/video/AV.h"
#include "renderkit/video/MovieFile.h"
#include "renderkit/video/PartOfShot.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <optional>
#include <utility>

namespace renderkit {
namespace {

namespace fs = std::filesystem;

struct CloseInput {
  void operator()(AVFormatContext* format) const { avformat_close_input(&format); }
};
using Input = std::unique_ptr<AVFormatContext, CloseInput>;

[[noreturn]] void fail(const fs::path& file, std::string_view what) {
  throw Failure(fmt::format("[join] {}: {}", file.string(), what));
}

Input open(const fs::path& file) {
  AVFormatContext* format = avformat_alloc_context();
  if (format == nullptr) fail(file, av::message(AVERROR(ENOMEM)));
  // The packets as they are in the file.
  format->flags |= AVFMT_FLAG_NOPARSE | AVFMT_FLAG_NOFILLIN;
  const auto status = avformat_open_input(&format, av::url(file).c_str(), nullptr, nullptr);
  if (status < 0) fail(file, av::message(status));
  Input input(format);
  if (format->nb_streams != 1 || format->streams[0]->codecpar->codec_id != AV_CODEC_ID_HEVC) {
    fail(file, "it is no clip of this program");
  }
  return input;
}

void forEachPacket(const fs::path& file, AVFormatContext& input, const std::function<void(AVPacket&)>& use) {
  const av::Packet packet(av_packet_alloc());
  for (;;) {
    const auto status = av_read_frame(&input, packet.get());
    if (status == AVERROR_EOF && (input.pb == nullptr || input.pb->error >= 0)) return;
    if (status < 0) fail(file, av::message(status));
    use(*packet);
    av_packet_unref(packet.get());
  }
}

struct Part {
  fs::path file;
  av::Parameters video;
  std::int32_t timescale = 0;
  /// Each packet's frame, in the order of decoding.
  std::vector<std::int64_t> frames;
  std::int64_t first = 0;
  std::int64_t last = 0;
  std::optional<PartOfShot> ofShot;
};

std::int64_t frameOf(const Part& part, const AVPacket& packet) {
  if (packet.pts == AV_NOPTS_VALUE || packet.pts < 0 || packet.pts % 1000 != 0) {
    fail(part.file, fmt::format("its times are not those of whole frames ({})", packet.pts));
  }
  return packet.pts / 1000;
}

/// Every frame from the first to the last must be there once.
void checkFrames(const Part& part) {
  auto sorted = part.frames;
  std::ranges::sort(sorted);
  for (std::size_t i = 0; i < sorted.size(); ++i) {
    if (sorted[i] != part.first + static_cast<std::int64_t>(i)) {
      fail(part.file,
           fmt::format("its frame {} is missing or there twice", part.first + static_cast<std::int64_t>(i)));
    }
  }
}

Part readPart(const fs::path& file) {
  Part part{.file = file};
  const auto input = open(file);
  const auto& stream = *input->streams[0];
  if (stream.time_base.num != 1) fail(file, "its times are not those of whole frames");
  part.timescale = stream.time_base.den;
  part.video.reset(avcodec_parameters_alloc());
  if (!part.video || avcodec_parameters_copy(part.video.get(), stream.codecpar) < 0) {
    fail(file, av::message(AVERROR(ENOMEM)));
  }
  if (const auto* comment = av_dict_get(input->metadata, "comment", nullptr, 0)) {
    part.ofShot = PartOfShot::parse(comment->value);
  }
  forEachPacket(file, *input, [&](AVPacket& packet) { part.frames.push_back(frameOf(part, packet)); });
  if (part.frames.empty()) fail(file, "it has no frames");
  part.first = std::ranges::min(part.frames);
  part.last = std::ranges::max(part.frames);
  checkFrames(part);
  return part;
}

void requireSameEncoding(const Part& a, const Part& b) {
  const auto& x = *a.video;
  const auto& y = *b.video;
  const bool same = x.width == y.width && x.height == y.height && a.timescale == b.timescale &&
                    x.extradata_size == y.extradata_size &&
                    std::memcmp(x.extradata, y.extradata, static_cast<std::size_t>(x.extradata_size)) == 0;
  if (!same) {
    fail(b.file, "it was encoded in another size, rate or way than " + a.file.string());
  }
}

std::string framesText(std::int64_t first, std::int64_t last) {
  return first == last ? fmt::format("frame {} is", first) : fmt::format("frames {} to {} are", first, last);
}

void requireNoGap(const std::vector<Part>& parts) {
  if (parts.front().first > 0) {
    throw Failure(fmt::format("[join] {} missing before {}", framesText(0, parts.front().first - 1),
                              parts.front().file.string()));
  }
  for (std::size_t i = 1; i < parts.size(); ++i) {
    const auto& before = parts[i - 1];
    const auto& after = parts[i];
    if (after.first > before.last + 1) {
      throw Failure(fmt::format("[join] {} missing between {} and {}",
                                framesText(before.last + 1, after.first - 1), before.file.string(),
                                after.file.string()));
    }
    if (after.first <= before.last) {
      throw Failure(fmt::format("[join] {} in both {} and {}",
                                framesText(after.first, std::min(before.last, after.last)),
                                before.file.string(), after.file.string()));
    }
    requireSameEncoding(parts.front(), after);
  }
  const auto& end = parts.back();
  if (end.ofShot && end.last + 1 < end.ofShot->frameCount) {
    throw Failure(fmt::format("[join] {} missing after {}",
                              framesText(end.last + 1, end.ofShot->frameCount - 1), end.file.string()));
  }
}

/// How many frames decoding runs ahead: the packet in place n holds a frame no earlier than n
/// less this.
std::int64_t decodingDelay(const std::vector<Part>& parts) {
  std::int64_t delay = 0, place = 0;
  for (const auto& part : parts) {
    for (const auto frame : part.frames) delay = std::max(delay, place++ - frame);
  }
  return delay;
}

}  // namespace

std::int64_t joinClips(const fs::path& output, const std::vector<fs::path>& files, std::stop_token stop) {
  av::beQuiet();
  std::vector<Part> parts;
  for (const auto& file : files) {
    checkCancellation(stop);
    std::error_code ignored;
    if (fs::equivalent(file, output, ignored)) fail(file, "a part cannot be the output too");
    parts.push_back(readPart(file));
  }
  if (parts.empty()) throw Failure("[join] there is no part");
  std::ranges::sort(parts, {}, &Part::first);
  requireNoGap(parts);

  const auto delay = decodingDelay(parts);
  MovieFile movie(output, *parts.front().video, parts.front().timescale, "");
  std::int64_t place = 0;
  for (const auto& part : parts) {
    const auto input = open(part.file);
    forEachPacket(part.file, *input, [&](AVPacket& packet) {
      checkCancellation(stop);
      packet.pts = frameOf(part, packet);
      packet.dts = place++ - delay;
      movie.write(packet);
    });
  }
  movie.finish();
  return place;
}

}  // namespace renderkit
