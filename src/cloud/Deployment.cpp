#include "cloud/Deployment.h"

#include "base/JSON.h"
#include "platform/linux/Files.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <variant>

namespace vorlane {
namespace {

constexpr std::size_t fileLimit = std::size_t{1} << 20;

/// A base to which paths are appended: kept without a slash at its end.
struct Base {
  std::optional<std::string> Deployment::* field;
};

using Field = std::variant<std::string Deployment::*, std::optional<std::string> Deployment::*, Base,
                           std::vector<std::string> Deployment::*, bool Deployment::*>;

struct Key {
  std::string_view name;
  Field field;
};

constexpr std::array<Key, 12> keys{{
    {"identityDomain", &Deployment::identityDomain},
    {"identityAudience", &Deployment::identityAudience},
    {"ledgerlyBase", Base{&Deployment::ledgerlyBase}},
    {"scenewardBase", Base{&Deployment::scenewardBase}},
    {"profilePath", &Deployment::profilePath},
    {"renderWebBase", Base{&Deployment::renderWebBase}},
    {"renderOrigins", &Deployment::renderOrigins},
    {"updatesHost", Base{&Deployment::updatesHost}},
    {"adminEmails", &Deployment::adminEmails},
    {"adminClaimHost", &Deployment::adminClaimHost},
    {"caFile", &Deployment::caFile},
    {"assumeOnline", &Deployment::assumeOnline},
}};

std::string text(std::string_view key, const JSONValue& value) {
  if (const auto* string = value.if_string()) return std::string(*string);
  throw Failure(fmt::format("the value of \"{}\" must be a string", key));
}

/// Stores the value of one key; one overload for each kind of field.
struct Store {
  Deployment& deployment;
  std::string_view key;
  const JSONValue& value;

  void operator()(std::string Deployment::* field) const { deployment.*field = text(key, value); }
  void operator()(std::optional<std::string> Deployment::* field) const {
    deployment.*field = text(key, value);
  }
  void operator()(Base base) const {
    auto origin = text(key, value);
    while (origin.ends_with('/')) origin.pop_back();
    deployment.*base.field = std::move(origin);
  }
  void operator()(std::vector<std::string> Deployment::* field) const {
    const auto* array = value.if_array();
    const bool strings = array != nullptr && std::ranges::all_of(*array, &JSONValue::is_string);
    if (!strings) throw Failure(fmt::format("the value of \"{}\" must be a list of strings", key));
    (deployment.*field).clear();
    for (const auto& element : *array) (deployment.*field).push_back(text(key, element));
  }
  void operator()(bool Deployment::* field) const {
    const auto* boolean = value.if_bool();
    if (boolean == nullptr) throw Failure(fmt::format("the value of \"{}\" must be true or false", key));
    deployment.*field = *boolean;
  }
};

/// People choose where a deployment file lies, so links to it are followed.
int readFile(const std::string& path, std::string& bytes) {
  const FileDescriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  return fd ? files::readAll(fd.get(), fileLimit, bytes) : errno;
}

}  // namespace

Deployment Deployment::parse(std::string_view text) {
  Deployment deployment;
  for (const auto& [name, value] : parseJSONMap(text)) {
    const std::string_view key(name);
    const auto* const known = std::ranges::find(keys, key, &Key::name);
    if (known == keys.end()) throw Failure(fmt::format("the key \"{}\" is unknown", key));
    std::visit(Store{deployment, key, value}, known->field);
  }
  return deployment;
}

Deployment Deployment::load(const std::string& path, bool named) {
  std::string bytes;
  const int error = readFile(path, bytes);
  if (error == ENOENT && !named) return {};
  if (error == EFBIG || error == EINVAL) {
    throw Failure(fmt::format("The deployment file {} is no plain file of at most 1 MB.", path));
  }
  if (error != 0) throw Failure(withErrno(fmt::format("The deployment file {} cannot be read", path), error));
  try {
    return parse(bytes);
  } catch (const Failure& failure) {
    throw Failure(fmt::format("The deployment file {} is not usable: {}.", path, failure.description()));
  }
}

}  // namespace vorlane
