#pragma once

#include "renderkit/Notices.h"
#include "renderkit/bundle/Photometry.h"

namespace renderkit::picture {

/// How light becomes the picture's linear values.
struct Exposure {
  /// Times a luminance in cd/m²: the linear value. An 18 % grey card that gets exactly the
  /// metered illuminance comes out as 0.18.
  double scale = 1;

  /// The lux that a card must get to come out as bright as it is.
  double meteredLux() const;
};

/// By the exposure triangle: E = C N² / (t S) with the incident constant that the meter's mode
/// chooses; a reflected reading meters the luminance 12.5 N² / (t S). Where that is no light
/// at all or not finite the scale is 1, with a notice.
Exposure exposure(const PhotometryDoc& photometry, Notices& notices);

}  // namespace renderkit::picture
