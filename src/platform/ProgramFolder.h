#pragma once

#include <filesystem>

namespace vorlane {

/// The folder that the running program lies in, beside the other programs of its
/// installation or build. Throws Failure when the system does not know.
std::filesystem::path programFolder();

}  // namespace vorlane
