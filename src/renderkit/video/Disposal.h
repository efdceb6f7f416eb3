#pragma once

#include <functional>

namespace renderkit {

/// Lets go of something that takes its time to end, on a thread of its own: the callable is
/// destroyed there, after its call. The end of the process waits for it.
void disposeLater(std::function<void()> work);

}  // namespace renderkit
