#include "programs/BakeCommandLine.h"

#include <charconv>
#include <string_view>
#include <utility>

namespace vorlane::bake {

const char usage[] =
    "usage: vorlane-bake [--output DIR] [--plate] [--ray-tracing on|off] [--camera ID] [--samples N]\n"
    "                    [--encoder x265|auto] [--frames A-B] [--json] BUNDLE ...\n"
    "       vorlane-bake --inspect BUNDLE\n"
    "       vorlane-bake --frame N --png FILE [--plate] [--ray-tracing on|off] [--camera ID] [--samples N] BUNDLE\n"
    "       vorlane-bake --join OUTPUT PART ...\n";

namespace {

constexpr int mostSamples = 4096;

[[noreturn]] void refuse(const std::string& what) {
  throw UsageFailure(what);
}

/// The whole text as a number that is not negative.
std::optional<std::int64_t> number(std::string_view text) {
  std::int64_t value = 0;
  const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (status != std::errc() || end != text.data() + text.size() || value < 0) return std::nullopt;
  return value;
}

std::int64_t numberIn(const char* option, const std::string& text, std::int64_t least, std::int64_t most) {
  const auto value = number(text);
  if (!value || *value < least || *value > most) {
    refuse(std::string("the option ") + option + " takes a number from " + std::to_string(least) +
           (most == INT64_MAX ? "" : " to " + std::to_string(most)) + ", not \"" + text + "\"");
  }
  return *value;
}

/// True for the first of two words.
bool oneOf(const char* option, const std::string& text, const char* yes, const char* no) {
  if (text == yes || text == no) return text == yes;
  refuse(std::string("the option ") + option + " takes " + yes + " or " + no + ", not \"" + text + "\"");
}

renderkit::FrameRange frames(const std::string& text) {
  const auto dash = text.find('-');
  const auto first = number(std::string_view(text).substr(0, dash));
  const auto last = dash == std::string::npos ? first : number(std::string_view(text).substr(dash + 1));
  if (!first || !last || *last < *first) {
    refuse("the option --frames takes two frames as A-B, not \"" + text + "\"");
  }
  return {.first = *first, .last = *last};
}

/// The words of one command line, before it is known whether they go together.
struct Parser {
  CommandLine line;
  bool inspects = false, helps = false;
  std::optional<std::string> output, png, joined;
  std::optional<std::int64_t> frame;

  void read(const Options::Words& words) {
    auto& render = line.options.render;
    using Text = const std::string&;
    Options options;
    options.flag("--plate", line.plate)
        .flag("--json", line.json)
        .flag("--inspect", inspects)
        .flag("--help", helps)
        .value("--output", output)
        .value("--png", png)
        .value("--join", joined)
        .value("--camera", render.cameraId)
        .value("--frame", [&](Text text) { frame = numberIn("--frame", text, 0, INT64_MAX); })
        .value("--frames", [&](Text text) { render.frames = frames(text); })
        .value("--samples",
               [&](Text text) {
                 render.samples = static_cast<int>(numberIn("--samples", text, 1, mostSamples));
               })
        .value("--ray-tracing",
               [&](Text text) { line.options.rayTracing = oneOf("--ray-tracing", text, "on", "off"); })
        .value("--encoder", [&](Text text) {
          render.encoder = oneOf("--encoder", text, "auto", "x265") ? renderkit::EncoderChoice::automatic
                                                                    : renderkit::EncoderChoice::x265;
        });
    for (auto& file : options.parse(words)) line.files.emplace_back(std::move(file));
  }

  /// Options that go together, and the number of files.
  void check() {
    using enum CommandLine::Mode;
    if (helps) {
      line.mode = help;
      return;
    }
    if (frame.has_value() != png.has_value()) refuse("the options --frame and --png go together");
    if ((inspects ? 1 : 0) + (frame ? 1 : 0) + (joined ? 1 : 0) > 1) refuseTogether();
    line.mode = inspects ? inspect : frame ? picture : joined ? join : render;
    const auto& options = line.options;
    const bool ofRender = line.json || output || options.render.frames ||
                          options.render.encoder == renderkit::EncoderChoice::automatic;
    const bool ofPicture =
        line.plate || options.rayTracing || options.render.cameraId || options.render.samples;
    if (line.mode != render && ofRender) refuseTogether();
    if ((line.mode == inspect || line.mode == join) && ofPicture) refuseTogether();
    if (line.files.empty()) refuse(line.mode == join ? "no part is named" : "no bundle is named");
    if ((line.mode == inspect || line.mode == picture) && line.files.size() > 1) {
      refuse("--inspect and --frame take one bundle");
    }
    if (output) line.output = *output;
    if (joined) line.output = *joined;
    line.png = png.value_or("");
    line.frame = frame.value_or(0);
  }

  [[noreturn]] static void refuseTogether() { refuse("these options do not go together"); }
};

}  // namespace

CommandLine CommandLine::parse(const Options::Words& words) {
  Parser parser;
  parser.read(words);
  parser.check();
  return std::move(parser.line);
}

}  // namespace vorlane::bake
