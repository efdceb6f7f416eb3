#pragma once

#include <cstdint>
#include <filesystem>
#include <stop_token>
#include <vector>

namespace renderkit {

/// Puts the parts of one shot together in the order of their frames, without encoding again,
/// and gives the number of frames. Every frame keeps its time. Throws a Failure, before the
/// output is touched, when the parts have a gap, overlap, or were encoded in different ways; it
/// names the frames and the files. CancelledFailure leaves what was written.
std::int64_t joinClips(const std::filesystem::path& output, const std::vector<std::filesystem::path>& parts,
                       std::stop_token stop = {});

}  // namespace renderkit
