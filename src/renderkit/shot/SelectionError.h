#pragma once

#include "renderkit/Failure.h"

namespace renderkit {

/// What was asked for is not in this bundle: a camera, or a frame beyond the last.
class SelectionError : public Failure {
 public:
  using Failure::Failure;
};

}  // namespace renderkit
