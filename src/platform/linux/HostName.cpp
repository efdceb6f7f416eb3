#include "platform/HostName.h"

#include "base/Text.h"

#include <unistd.h>

#include <array>
#include <fstream>
#include <string_view>

namespace vorlane {
namespace {

/// PRETTY_HOSTNAME of the file in which the system keeps it: shell assignments, the
/// value quoted where it has to be.
std::optional<std::string> prettyName() {
  static constexpr std::string_view key = "PRETTY_HOSTNAME=";
  std::ifstream file("/etc/machine-info");
  for (std::string line; std::getline(file, line);) {
    if (!line.starts_with(key)) continue;
    auto value = trimmed(std::string_view(line).substr(key.size()));
    const bool quoted =
        value.size() >= 2 && (value.front() == '"' || value.front() == '\'') && value.back() == value.front();
    if (quoted) value = value.substr(1, value.size() - 2);
    std::string name;
    for (std::size_t i = 0; i < value.size(); ++i) {
      if (value[i] == '\\' && i + 1 < value.size()) ++i;
      name += value[i];
    }
    if (!name.empty()) return name;
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> hostName() {
  if (auto name = prettyName()) return name;
  std::array<char, 256> name{};
  if (::gethostname(name.data(), name.size() - 1) != 0 || name[0] == '\0') return std::nullopt;
  return std::string(name.data());
}

}  // namespace vorlane
