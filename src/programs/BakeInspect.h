#pragma once

#include "renderkit/Notices.h"
#include "renderkit/bundle/BakeBundle.h"

#include <string>

namespace vorlane::bake {

/// What a bundle holds, as JSON for people and programs, after every range and index of it was
/// checked. Throws a renderkit::Failure.
std::string inspect(const renderkit::BakeBundle& bundle, renderkit::Notices& notices);

}  // namespace vorlane::bake
