#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace renderkit::OutputPath {

/// The folder names of a manifest's output folder; none for an empty path. Throws
/// EncodeError::unsafeOutputFolderPath for a path that could leave the render base.
std::vector<std::string> safeComponents(std::string_view path);

/// Creates the folder below the base and names the file in it: the components joined by
/// " - ", else "render", then the extension (without its dot). Throws a Failure when the
/// folder cannot be created.
std::filesystem::path outputURL(const std::filesystem::path& base, const std::vector<std::string>& components,
                                std::string_view extension);

}  // namespace renderkit::OutputPath
