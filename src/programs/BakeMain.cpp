#include "programs/BakeCommandLine.h"
#include "programs/BakeInspect.h"
#include "programs/BakeInterruption.h"
#include "programs/BakeJobs.h"
#include "renderkit/Failure.h"
#include "renderkit/bundle/BakeBundleDecoder.h"
#include "renderkit/bundle/JSONDocument.h"
#include "renderkit/shot/PlateSource.h"
#include "renderkit/shot/ProcessorFeatures.h"
#include "renderkit/shot/SelectionError.h"
#include "renderkit/shot/Shot.h"
#include "renderkit/video/ClipJoiner.h"
#include "renderkit/video/PictureFile.h"
#include "renderkit/video/PixelBufferFactory.h"

#include <fmt/format.h>
#include <signal.h>
#include <boost/json/object.hpp>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <vector>

namespace vorlane::bake {
namespace {

using renderkit::BakeBundleDecoder::decode;

void tell(const CommandLine& line, renderkit::Notices& notices) {
  for (const auto& notice : notices.take()) complain(line.files.front().string() + ": " + notice);
}

void inspectBundle(const CommandLine& line) {
  renderkit::Notices notices;
  std::fputs((inspect(decode(line.files.front()), notices) + "\n").c_str(), stdout);
  tell(line, notices);
}

void writePicture(const CommandLine& line, std::stop_token stop) {
  renderkit::Notices notices;
  const auto bundle = decode(line.files.front());
  auto options = line.options.render;
  options.rayTracing = line.options.rayTracing.value_or(bundle.manifest.rayTracing);
  renderkit::Shot shot(bundle, options, notices, !line.plate);
  if (line.frame >= shot.frameCount()) {
    throw renderkit::SelectionError(fmt::format("there is no frame {}; the bundle has {}, counted from 0",
                                                line.frame, shot.frameCount()));
  }
  const auto [width, height] = shot.size();
  shot.prepare(line.plate ? renderkit::makePlateSource : renderkit::makePictureSource);
  renderkit::PixelBufferFactory buffers(width, height);
  auto picture = buffers.buffer();
  shot.render(line.frame, picture, stop);
  renderkit::writePNG(line.png, picture);
  tell(line, notices);
}

void joinParts(const CommandLine& line, std::stop_token stop) {
  const auto frames = renderkit::joinClips(line.output, line.files, std::move(stop));
  const boost::json::object result{{"output", line.output.string()}, {"frames", frames}};
  std::fputs((renderkit::printJSONLine(result) + "\n").c_str(), stdout);
}

/// The picture's code needs more of a processor than the rest.
void requireProcessor(const CommandLine& line) {
  if (line.plate || line.mode == CommandLine::Mode::inspect || line.mode == CommandLine::Mode::join) return;
  const auto missing = renderkit::missingProcessorFeatures();
  if (!missing.empty()) {
    throw renderkit::Failure("this processor lacks " + missing + ", which the picture needs");
  }
}

int perform(const CommandLine& line, const Interruption& interruption) {
  try {
    requireProcessor(line);
    switch (line.mode) {
      case CommandLine::Mode::render:
        return runJobs(line, interruption);
      case CommandLine::Mode::inspect:
        inspectBundle(line);
        break;
      case CommandLine::Mode::picture:
        writePicture(line, interruption.token());
        break;
      case CommandLine::Mode::join:
        joinParts(line, interruption.token());
        break;
      case CommandLine::Mode::help:
        std::fputs(usage, stdout);
        break;
    }
    return 0;
  } catch (const renderkit::CancelledFailure&) {
    return 130;
  } catch (const std::exception& error) {
    const bool ofFile = line.mode == CommandLine::Mode::inspect || line.mode == CommandLine::Mode::picture;
    complain((ofFile ? line.files.front().string() + ": " : "") + error.what());
    return dynamic_cast<const renderkit::SelectionError*>(&error) != nullptr ? 2 : 1;
  }
}

int run(const Options::Words& words) {
  // A full disk and a reader that went away are failures like others.
  ::signal(SIGXFSZ, SIG_IGN);
  ::signal(SIGPIPE, SIG_IGN);
  const Interruption interruption;
  int code = 0;
  try {
    code = perform(CommandLine::parse(words), interruption);
  } catch (const UsageFailure& error) {
    complain(error.what());
    code = 2;
  }
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
    complain("the answer could not be written");
    if (code == 0) code = 1;
  }
  // What a cut-off encoder still does is no longer of use.
  if (code == 1 || code == 130) std::_Exit(code);
  return code;
}

}  // namespace
}  // namespace vorlane::bake

int main(int count, char** words) {
  return vorlane::bake::run(vorlane::wordsOf(count, words));
}
