#include "base/Failure.h"

#include <boost/asio/error.hpp>
#include <boost/system/system_error.hpp>

#include <cstring>

namespace vorlane {

std::string describe(const std::exception& error) {
  if (const auto* system = dynamic_cast<const boost::system::system_error*>(&error)) {
    if (system->code() == boost::asio::error::operation_aborted) return CancelledFailure().description();
    return system->code().message();
  }
  return error.what();
}

std::string describe(const std::exception_ptr& error) {
  if (!error) return "no error";
  try {
    std::rethrow_exception(error);
  } catch (const std::exception& known) {
    return describe(known);
  } catch (...) {
    return "an unknown failure";
  }
}

bool isCancellation(const std::exception& error) {
  if (dynamic_cast<const CancelledFailure*>(&error) != nullptr) return true;
  const auto* system = dynamic_cast<const boost::system::system_error*>(&error);
  return system != nullptr && system->code() == boost::asio::error::operation_aborted;
}

std::string withErrno(const std::string& text, int error) {
  char buffer[256];
  return text + ": " + strerror_r(error, buffer, sizeof buffer);
}

}  // namespace vorlane
