#include "programs/BakeCommandLine.h"

#include <charconv>
#include <string_view>

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
  throw UsageError(what);
}

/// The whole text as a number that is not negative.
std::optional<std::int64_t> number(std::string_view text) {
  std::int64_t value = 0;
  const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (status != std::errc() || end != text.data() + text.size() || value < 0) return std::nullopt;
  return value;
}

/// Takes the words of a command line one by one; the order of options and files is free.
class Parser {
 public:
  explicit Parser(const std::vector<std::string>& arguments) : words_(arguments) {}

  CommandLine parse() {
    while (at_ < words_.size()) {
      const auto& word = words_[at_++];
      if (!optionsEnded_ && word.size() > 1 && word.starts_with('-')) {
        option(word);
      } else {
        line_.files.emplace_back(word);
      }
    }
    check();
    return std::move(line_);
  }

 private:
  void option(const std::string& word) {
    const auto equals = word.starts_with("--") ? word.find('=') : std::string::npos;
    name_ = word.substr(0, equals);
    if (equals != std::string::npos) given_ = word.substr(equals + 1);
    if (!flag() && !renderValue() && !modeValue()) refuse("unknown option " + name_);
    if (given_) refuse("the option " + name_ + " takes no value");
  }

  bool flag() {
    if (name_ == "--plate") return line_.plate = true;
    if (name_ == "--json") return line_.json = json_ = true;
    if (name_ == "--") return optionsEnded_ = true;
    if (name_ == "--inspect") return mode(CommandLine::Mode::inspect);
    if (name_ == "--help" || name_ == "-h") return mode(CommandLine::Mode::help);
    return false;
  }

  bool renderValue() {
    auto& options = line_.options;
    if (name_ == "--output") {
      line_.output = value();
      output_ = true;
    } else if (name_ == "--ray-tracing") {
      options.rayTracing = oneOf("on", "off");
    } else if (name_ == "--camera") {
      options.render.cameraId = value();
    } else if (name_ == "--samples") {
      options.render.samples = static_cast<int>(numberIn(1, mostSamples));
    } else if (name_ == "--encoder") {
      options.render.encoder =
          oneOf("auto", "x265") ? renderkit::EncoderChoice::automatic : renderkit::EncoderChoice::x265;
    } else if (name_ == "--frames") {
      options.render.frames = frames(value());
    } else {
      return false;
    }
    return true;
  }

  bool modeValue() {
    if (name_ == "--frame") {
      line_.frame = numberIn(0, INT64_MAX);
      frame_ = true;
    } else if (name_ == "--png") {
      line_.png = value();
    } else if (name_ == "--join") {
      line_.output = value();
      mode(CommandLine::Mode::join);
    } else {
      return false;
    }
    return true;
  }

  bool mode(CommandLine::Mode mode) {
    if (line_.mode != CommandLine::Mode::render && line_.mode != mode) {
      refuse("the option " + name_ + " does not go with the others");
    }
    line_.mode = mode;
    return true;
  }

  std::string value() {
    if (!given_) {
      if (at_ == words_.size()) refuse("the option " + name_ + " needs a value");
      given_ = words_[at_++];
    }
    auto text = std::move(*given_);
    given_.reset();
    if (text.empty()) refuse("the option " + name_ + " needs a value");
    return text;
  }

  std::int64_t numberIn(std::int64_t least, std::int64_t most) {
    const auto text = value();
    const auto value = number(text);
    if (!value || *value < least || *value > most) {
      refuse("the option " + name_ + " takes a number from " + std::to_string(least) +
             (most == INT64_MAX ? "" : " to " + std::to_string(most)) + ", not \"" + text + "\"");
    }
    return *value;
  }

  /// True for the first of two words.
  bool oneOf(std::string_view yes, std::string_view no) {
    const auto text = value();
    if (text != yes && text != no) {
      refuse("the option " + name_ + " takes " + std::string(yes) + " or " + std::string(no) + ", not \"" +
             text + "\"");
    }
    return text == yes;
  }

  renderkit::FrameRange frames(const std::string& text) const {
    const auto dash = text.find('-');
    const auto first = number(std::string_view(text).substr(0, dash));
    const auto last = dash == std::string::npos ? first : number(std::string_view(text).substr(dash + 1));
    if (!first || !last || *last < *first) {
      refuse("the option " + name_ + " takes two frames as A-B, not \"" + text + "\"");
    }
    return {.first = *first, .last = *last};
  }

  /// Options that go together, and the number of files.
  void check() {
    using enum CommandLine::Mode;
    if (line_.mode == help) return;
    if (frame_ != !line_.png.empty()) refuse("the options --frame and --png go together");
    if (frame_) {
      name_ = "--frame";
      mode(picture);
    }
    const auto& options = line_.options;
    const bool ofRender =
        json_ || options.render.frames || options.render.encoder == renderkit::EncoderChoice::automatic;
    const bool ofPicture =
        line_.plate || options.rayTracing || options.render.cameraId || options.render.samples;
    if ((line_.mode != render && (ofRender || output_)) ||
        ((line_.mode == inspect || line_.mode == join) && ofPicture)) {
      refuse("these options do not go together");
    }
    if (line_.files.empty()) refuse(line_.mode == join ? "no part is named" : "no bundle is named");
    if ((line_.mode == inspect || line_.mode == picture) && line_.files.size() > 1) {
      refuse("one bundle at a time, please, with --inspect and --frame");
    }
  }

  const std::vector<std::string>& words_;
  std::size_t at_ = 0;
  CommandLine line_;
  std::string name_;
  /// The value behind "=", until it is taken.
  std::optional<std::string> given_;
  bool optionsEnded_ = false;
  bool frame_ = false;
  bool json_ = false;
  bool output_ = false;
};

}  // namespace

CommandLine CommandLine::parse(const std::vector<std::string>& arguments) {
  return Parser(arguments).parse();
}

}  // namespace vorlane::bake
