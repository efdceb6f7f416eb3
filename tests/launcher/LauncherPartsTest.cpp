#include "LauncherFixture.h"
#include "launcher/PendingRequests.h"
#include "launcher/StandardOutput.h"

#include <sys/resource.h>

namespace vorlane {
namespace {

using testing::End;

TEST(PendingRequests, AreFullAtABoundAndComeFreeEvenIfSomeAreNeverAnswered) {
  PendingRequests pending;
  const auto add = [&](int number) {
    const auto text = std::to_string(number);
    pending.add({.kind = Message::Kind::request, .id = text, .key = text});
  };
  pending.answered("1");
  pending.answered("null");
  int count = 0;
  while (!pending.full()) add(++count);
  EXPECT_GT(count, 1000);
  // Unreadable lines are answered under no id.
  pending.answered("null");
  EXPECT_FALSE(pending.full());
  pending.answered("null");
  for (int number = 1; number < count - 1; ++number) pending.answered(std::to_string(number));
  add(count);
  pending.answered(std::to_string(count));
  const auto last = std::to_string(count);
  EXPECT_EQ(pending.takeIDs(), (std::vector{std::to_string(count - 1), last}));
  EXPECT_TRUE(pending.empty());
}

// What can be opened anew, and a socket, are tested with the program.
TEST(StandardOutput, NeverWaitsForAPipeThatCannotBeOpenedAnew) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  End reader(ends[0]), writer(ends[1]);
  rlimit before{};
  ::getrlimit(RLIMIT_NOFILE, &before);
  const rlimit none{.rlim_cur = 0, .rlim_max = before.rlim_max};
  ::setrlimit(RLIMIT_NOFILE, &none);
  const StandardOutput output(writer.get());
  // poll(2) would obey that limit too.
  ::setrlimit(RLIMIT_NOFILE, &before);

  const std::string piece(100'003, 'x');
  std::size_t written = 0;
  for (int turn = 0; turn < 3; ++turn) {
    ssize_t count = 0;
    while ((count = output.write(piece)) > 0) written += static_cast<std::size_t>(count);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(reader.read(written).size(), std::exchange(written, 0));
  }
  EXPECT_EQ(::fcntl(writer.get(), F_GETFL) & O_NONBLOCK, 0);
}

}  // namespace
}  // namespace vorlane
