#pragma once

#include <string>

namespace vorlane {

/// Makes the app group's folder with its missing parents, mode 0700, or checks the
/// one that is there: it has to be this user's own, and access by others is taken
/// away. Throws Failure naming the folder, and its owner when that is another user;
/// then nothing has been written.
void prepareAppGroupContainer(const std::string& folder);

}  // namespace vorlane
