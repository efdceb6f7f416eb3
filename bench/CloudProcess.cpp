#include "bench/CloudProcess.h"

#include "base/JSON.h"
#include "devcloud/DevCloud.h"
#include "devcloud/Identity.h"
#include "devcloud/People.h"
#include "devcloud/Projects.h"
#include "devcloud/RequestLog.h"
#include "devcloud/Sheets.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

namespace vorlane::bench {

CloudProcess::CloudProcess(const std::filesystem::path& folder) {
  int ours[2], its[2];
  if (::pipe(ours) != 0 || ::pipe(its) != 0) std::abort();
  child_ = ::fork();
  if (child_ == 0) {
    ::close(its[1]);
    serve(folder, its[0], ours[1]);
    ::_exit(0);
  }
  ::close(its[0]);
  ::close(ours[1]);
  commands_ = its[1];
  answers_ = ours[0];
  std::string told;
  for (char byte = 0; ::read(answers_, &byte, 1) == 1 && byte != '\n';) told += byte;
  const auto facts = parseJSONMap(told);
  base = facts.at("base").as_string();
  token = facts.at("token").as_string();
  caFile = facts.at("caFile").as_string();
}

CloudProcess::~CloudProcess() {
  ::close(commands_);
  ::waitpid(child_, nullptr, 0);
  ::close(answers_);
}

void CloudProcess::order(char command) {
  char done = 0;
  if (::write(commands_, &command, 1) != 1 || ::read(answers_, &done, 1) != 1) std::abort();
}

void CloudProcess::serve(const std::filesystem::path& folder, int commands, int answers) {
  devcloud::DevCloud cloud({.directory = folder});
  cloud.start();
  cloud.call(&devcloud::People::put, {.sub = owner, .email = "bench@vorlane.test", .name = "Bench"});
  const auto text =
      writeJSON(JSONMap{{"base", cloud.base()},
                        {"token", cloud.call(&devcloud::Identity::issue, owner, {}).accessToken},
                        {"caFile", cloud.caFile().string()}}) +
      "\n";
  if (::write(answers, text.data(), text.size()) != static_cast<ssize_t>(text.size())) std::abort();
  for (char command = 0; ::read(commands, &command, 1) == 1;) {
    cloud.call(&devcloud::RequestLog::clear);
    if (command == 'r') {
      for (const auto& sheet : cloud.call(&devcloud::Sheets::ownedBy, owner))
        cloud.call(&devcloud::Sheets::remove, owner, sheet.id);
      for (const auto& project : cloud.call(&devcloud::Projects::ownedBy, owner))
        cloud.call(&devcloud::Projects::remove, owner, project.id);
    }
    if (::write(answers, &command, 1) != 1) return;
  }
}

}  // namespace vorlane::bench
