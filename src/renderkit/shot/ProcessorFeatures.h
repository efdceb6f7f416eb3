#pragma once

#include <string>

namespace renderkit {

/// What this processor lacks of what the picture's code is compiled for, as "avx2, fma"; empty
/// when it is fit. To be asked before makePictureSource, which would else end the process.
std::string missingProcessorFeatures();

}  // namespace renderkit
