#pragma once

#include "base/Date.h"

namespace vorlane::devcloud {

class Identity;
class Router;

/// The profile and the admin snapshot of whoever asks.
void addAccountRoutes(Router& router, const Identity& identity, const Clock& clock);

}  // namespace vorlane::devcloud
