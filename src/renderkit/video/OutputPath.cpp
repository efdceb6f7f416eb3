#include "renderkit/video/OutputPath.h"

#include "renderkit/Text.h"
#include "renderkit/video/EncodeError.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <system_error>

namespace renderkit::OutputPath {

std::vector<std::string> safeComponents(std::string_view path) {
  const auto refuse = [&] { throw EncodeError::unsafeOutputFolderPath(std::string(path)); };
  if (path.starts_with('/') || path.starts_with('~') || path.find('\0') != std::string_view::npos) refuse();
  std::vector<std::string> components;
  for (std::size_t at = 0; at <= path.size();) {
    const auto end = std::min(path.find('/', at), path.size());
    const auto piece = path.substr(at, end - at);
    at = end + 1;
    if (piece.empty()) continue;
    if (piece == ".." || piece == "." || piece.starts_with('~') || trimmed(piece).empty()) refuse();
    components.emplace_back(piece);
  }
  return components;
}

std::filesystem::path outputURL(const std::filesystem::path& base, const std::vector<std::string>& components,
                                std::string_view extension) {
  auto folder = base;
  for (const auto& component : components) folder /= component;
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (error) throw Failure(fmt::format("{} cannot be created: {}", folder.string(), error.message()));
  const auto name = components.empty() ? "render" : fmt::format("{}", fmt::join(components, " - "));
  return folder / fmt::format("{}.{}", name, extension);
}

}  // namespace renderkit::OutputPath
