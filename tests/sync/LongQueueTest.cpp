#include "tests/sync/CloudHarness.h"

namespace vorlane {
namespace {

using LongQueue = CloudHarness;

TEST_F(LongQueue, ThirtySavesOfTenMegabytesGoUpInTheirOrder) {
  Texts operations, committed;
  for (int i = 0; i < 30; ++i) {
    operations.push_back(newLowercaseUUID());
    const auto archive = std::string(7'500'000, static_cast<char>('a' + i % 26));
    await(queue.enqueue(ana, project(1), checkpointPayload(project(1), operations.back(), i, archive)));
  }
  EXPECT_EQ(await(savePusher->runOnce()).size(), 30U);
  for (const auto& commit : cloud.call(&Projects::commits, ana)) committed.push_back(commit.operationID);
  EXPECT_EQ(committed, operations);
}

}  // namespace
}  // namespace vorlane
