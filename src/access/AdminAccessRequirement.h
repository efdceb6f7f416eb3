#pragma once

#include <map>
#include <string>

namespace vorlane {

/// What a tool that is reserved for administrators asks of its caller.
struct AdminAccessRequirement {
  std::string product;
  std::string section;
  std::string action;
  /// The concrete object of the call, such as a project.
  std::map<std::string, std::string> scope;
  /// True when the tool is only being listed, with no concrete object.
  bool discoveryOnly = false;
};

}  // namespace vorlane
