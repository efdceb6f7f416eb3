#include "Spine.h"

#include "base/JSONArguments.h"

#include <sys/stat.h>

#include <fstream>

namespace vorlane::test {

namespace fs = std::filesystem;

namespace {

devcloud::DevCloudOptions cloudBelow(const fs::path& folder) {
  devcloud::DevCloudOptions options;
  options.directory = folder / "cloud";
  return options;
}

/// So that the agent, which starts after it, finds the deployment file.
devcloud::DevCloud& started(devcloud::DevCloud& cloud) {
  cloud.start();
  return cloud;
}

}  // namespace

Spine::Spine()
    : cloud(cloudBelow(folder.path())), agent(folder.path() / "agent", started(cloud).deploymentFile()) {}

void Spine::person(const std::string& sub, bool access) {
  devcloud::Person person;
  person.sub = sub;
  person.email = sub.substr(sub.find('|') + 1) + "@example.com";
  person.name = "Somebody";
  person.mcpAccess = access;
  cloud.call(&devcloud::People::put, person);
}

void Spine::announce(const std::string& signal) {
  const auto finished = runProgram("vorlanectl", {"signal", "post", signal}, agent.environment());
  if (finished.exitCode != 0) throw Failure(finished.error);
}

void Spine::signIn(const std::string& sub, std::optional<std::int64_t> lifetime) {
  fs::create_directories(vaultFile().parent_path());
  const auto temporary = vaultFile().string() + ".new";
  std::ofstream(temporary) << writeJSON(cloud.call(&devcloud::Identity::issue, sub, lifetime).storedForm());
  ::chmod(temporary.c_str(), 0600);
  fs::rename(temporary, vaultFile());
  if (agent.running()) announce("com.vorlane.auth.owner-changed");
}

void Spine::signOut() {
  fs::remove(vaultFile());
  announce("com.vorlane.auth.owner-changed");
}

void Spine::startServing(const std::string& sub) {
  person(sub, true);
  signIn(sub);
  agent.start();
  token = agent.token();
  if (!eventuallyAnswers(200)) throw Failure("the agent does not serve; its log:\n" + agent.log());
}

JSONMap Spine::status() const {
  return parseJSONMap(runProgram("vorlanectl", {"status"}, agent.environment()).out);
}

bool Spine::eventuallyAnswers(int status) {
  if (token.empty()) token = agent.token();
  return eventually([&] { return post(agent.port(), token, listTools).status == status; });
}

JSONMap Spine::call(const std::string& tool, JSONMap arguments) {
  return test::call(agent.port(), token, tool, std::move(arguments));
}

JSONMap Spine::result(const std::string& tool, JSONMap arguments) {
  return toolResult(call(tool, std::move(arguments)));
}

}  // namespace vorlane::test
