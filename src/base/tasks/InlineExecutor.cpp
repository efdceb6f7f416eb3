#include "base/tasks/InlineExecutor.h"

namespace vorlane {

thread_local constinit const void* InlineExecutor::starting_ = nullptr;

}  // namespace vorlane
