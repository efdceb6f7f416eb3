#pragma once

#include "store/Migrator.h"

namespace vorlane {

/// The migrations of "Vorlane.sqlite". Files of every age are out there, so a
/// migration is never changed once it has shipped; new ones go to the end.
Migrator storeMigrator();

}  // namespace vorlane
