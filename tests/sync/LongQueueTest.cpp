#include "tests/sync/SaveBench.h"

#include <vector>

namespace vorlane {
namespace {

using LongQueue = SaveBench;

TEST_F(LongQueue, ThirtySavesOfTenMegabytesGoUpInTheirOrder) {
  const auto project = newLowercaseUUID();
  std::vector<std::string> operations;
  for (int i = 0; i < 30; ++i) {
    const auto operation = newLowercaseUUID();
    const auto archive = std::string(7'500'000, static_cast<char>('a' + i % 26));
    await(queue.enqueue("auth0|ana", project, checkpointPayload(project, operation, i, archive)));
    operations.push_back(operation);
  }
  EXPECT_EQ(await(pusher->runOnce()).size(), 30U);
  std::vector<std::string> committed;
  for (const auto& commit : cloud.commits("auth0|ana")) committed.push_back(commit.operationID);
  EXPECT_EQ(committed, operations);
}

}  // namespace
}  // namespace vorlane
