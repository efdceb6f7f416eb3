#include "renderkit/zip/ZipArchive.h"

#include "renderkit/BundleBuilder.h"
#include "renderkit/Failure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace renderkit {
namespace {

using testing::patched, testing::zipBytes;

/// What reading "a.txt" gives: its bytes, or the failure's text.
std::string readFrom(const std::string& archive) {
  try {
    return std::string(ZipArchive::open(Bytes(archive)).read("a.txt").text());
  } catch (const Failure& failure) {
    return failure.text();
  }
}

constexpr char notAnArchive[] = "[zip] not a ZIP archive (no end-of-central-directory)";
constexpr char zip64[] = "[zip] ZIP64 archives are not supported by the bake bundle contract";
constexpr char inflateFailed[] = "[zip] DEFLATE inflate failed for entry a.txt";

TEST(ZipArchive, OpensAnEmptyOne) {
  EXPECT_TRUE(ZipArchive::open(Bytes(zipBytes({}))).names().empty());
  EXPECT_EQ(readFrom(zipBytes({})), "[zip] entry not found: a.txt");
}

TEST(ZipArchive, ReadsStoredAndDeflatedEntriesByTheirLocalHeader) {
  const auto archive = ZipArchive::open(
      Bytes(zipBytes({{.name = "a.txt", .bytes = "hello"},
                      {.name = "b", .bytes = "hello", .deflate = true, .localExtra = "extra"},
                      {.name = "empty", .bytes = "", .deflate = true}})));
  EXPECT_THAT(archive.names(), ::testing::ElementsAre("a.txt", "b", "empty"));
  EXPECT_EQ(archive.read("a.txt").text(), "hello");
  EXPECT_EQ(archive.read("b").text(), "hello");
  EXPECT_EQ(archive.read("empty").text(), "");
  EXPECT_TRUE(archive.contains("b"));
  EXPECT_FALSE(archive.contains("c"));
}

TEST(ZipArchive, TakesTheLastOfANameAndPassesOverWhatIsNotUTF8) {
  const auto archive = ZipArchive::open(Bytes(zipBytes({{.name = "a.txt", .bytes = "first"},
                                                        {.name = "\xff\xfe", .bytes = "?"},
                                                        {.name = "caf\xc3\xa9", .bytes = "!"},
                                                        {.name = "a.txt", .bytes = "last"}})));
  EXPECT_THAT(archive.names(), ::testing::ElementsAre("a.txt", "caf\xc3\xa9"));
  EXPECT_EQ(archive.read("a.txt").text(), "last");
}

TEST(ZipArchive, FindsItsEndBehindTheLongestComment) {
  EXPECT_EQ(readFrom(zipBytes({{.name = "a.txt", .bytes = "x"}}, std::string(65535, '-'))), "x");
  EXPECT_EQ(readFrom(zipBytes({{.name = "a.txt", .bytes = "x"}}) + std::string(65536, '-')), notAnArchive);
  // The record nearest the end is the one, even in a comment: here one of an empty archive.
  EXPECT_EQ(readFrom(zipBytes({{.name = "a.txt", .bytes = "x"}}, zipBytes({}))),
            "[zip] entry not found: a.txt");
}

// Local header at 0, payload at 35, directory at 40, its end at 91.
struct Lie {
  std::size_t offset;
  int size;
  std::uint64_t value;
  const char* result;
};

TEST(ZipArchive, NamesEachFieldThatLies) {
  const auto sound = zipBytes({{.name = "a.txt", .bytes = "hello"}});
  ASSERT_EQ(sound.size(), 113U);
  const Lie lies[] = {
      {0, 4, 1, "[zip] truncated archive: local header for a.txt"},
      {26, 2, 60000, "[zip] truncated archive: payload for a.txt"},
      {28, 2, 60000, "[zip] truncated archive: payload for a.txt"},
      {28, 2, 1, "ello\x50"},
      {40, 4, 1, "[zip] truncated archive: central directory record @40"},
      {50, 2, 12, "[zip] unsupported compression method 12 a.txt (STORE + DEFLATE only)"},
      {50, 2, 8, inflateFailed},
      {56, 4, 12345, "hello"},  // CRC
      {60, 4, 80, "[zip] truncated archive: payload for a.txt"},
      {60, 4, 0xFFFFFFFF, zip64},
      {64, 4, 4, "hello"},  // a stored entry's other size
      {64, 4, 0xFFFFFFFF, zip64},
      {68, 2, 60000, "[zip] truncated archive: central directory name @40"},
      {68, 2, 4, "[zip] entry not found: a.txt"},
      {82, 4, 111, "[zip] truncated archive: u32 read @111"},
      {82, 4, 0xFFFFFFFF, zip64},
      {91, 4, 1, notAnArchive},
      {101, 2, 0, "[zip] entry not found: a.txt"},
      {101, 2, 2, "[zip] truncated archive: central directory record @91"},
      {101, 2, 0xFFFF, zip64},
      {103, 4, 7, "hello"},  // the directory's size
      {103, 4, 0xFFFFFFFF, zip64},
      {107, 4, 111, "[zip] truncated archive: u32 read @111"},
      {107, 4, 0xFFFFFFFF, zip64},
      {71, 4, 0x07064B50, zip64},  // where a ZIP64 locator would stand
  };
  for (const auto& lie : lies) {
    EXPECT_EQ(readFrom(patched(sound, lie.offset, lie.size, lie.value)), lie.result) << "at " << lie.offset;
  }
}

TEST(ZipArchive, NamesTheFirstFieldBeyondACut) {
  const auto sound = zipBytes({{.name = "a.txt", .bytes = "hello"}});
  EXPECT_EQ(readFrom(""), notAnArchive);
  EXPECT_EQ(readFrom(sound.substr(0, 112)), notAnArchive);
  // A directory of which only 20 bytes stand before the end of the data.
  const auto end = sound.substr(91);
  const auto cut = [&](std::size_t room) { return patched(end, 16, 4, 22 - room); };
  EXPECT_EQ(readFrom(patched(std::string(60, 'x') + end, 76, 4, 80)),
            "[zip] truncated archive: u32 read @80");
  EXPECT_EQ(readFrom(cut(2)), "[zip] truncated archive: u32 read @20");
}

TEST(ZipArchive, InflatesExactlyTheClaimedSize) {
  const std::string text(5000, 'z');
  const auto sound = zipBytes({{.name = "a.txt", .bytes = text, .deflate = true}});
  const auto directory = sound.size() - 22 - 51;
  const auto claimed = [&](std::uint64_t size) { return readFrom(patched(sound, directory + 24, 4, size)); };
  EXPECT_EQ(claimed(5000), text);
  EXPECT_EQ(claimed(0), "");
  EXPECT_EQ(claimed(4999), inflateFailed);
  EXPECT_EQ(claimed(5001), inflateFailed);
  // More than DEFLATE can give: refused before four gigabytes are asked for.
  EXPECT_EQ(claimed(0xFFFFFFF0), inflateFailed);
  EXPECT_EQ(readFrom(patched(sound, 35, 1, 0xFF)), inflateFailed);
}

}  // namespace
}  // namespace renderkit
