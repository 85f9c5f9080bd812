#include "host/FileAccess.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <fstream>

#include "tests/support/TemporaryFolder.h"

namespace harvane {
namespace {

// u-umlaut, Greek omega and a musical G clef, which takes two units of UTF-16.
constexpr const char* kForeignName = "\xC3\xBC\xCE\xA9\xF0\x9D\x84\x9E.wav";

class FileAccess : public testing::Test {
 protected:
  void Put(const std::string& name, const std::string& bytes) const {
    std::ofstream(PathOf(folder.FileIn("") + name), std::ios::binary) << bytes;
  }
  std::string Place(const std::string& name) const { return folder.FileIn("") + name; }

  support::TemporaryFolder folder;
};

TEST_F(FileAccess, ForeignNameIsTheSameThereAndBack) {
  Put(kForeignName, "x");

  ASSERT_TRUE(std::filesystem::exists(PathOf(Place(kForeignName))));
  const std::filesystem::directory_iterator only(folder.Path());
  EXPECT_EQ(only->path().filename().string(), kForeignName);
  EXPECT_TRUE(OpenForReading(Place(kForeignName)).IsOpen());
}

TEST_F(FileAccess, NameThatIsNoUtf8IsNotThere) {
  FileState state{};
  EXPECT_FALSE(ReadState(Place("a\xFF"), &state));
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(FileAccess, StateTellsKindAndLength) {
  Put("a", "12345");
  FileState file{};
  FileState place{};

  ASSERT_TRUE(ReadState(Place("a"), &file));
  ASSERT_TRUE(ReadState(folder.Text(), &place));

  EXPECT_EQ(file.kind, FileKind::kRegular);
  EXPECT_EQ(file.version.bytes, 5);
  EXPECT_EQ(place.kind, FileKind::kFolder);
}

TEST_F(FileAccess, FolderOpensAndSaysWhatItIs) {
  const Descriptor open = OpenForReading(folder.Text());
  FileState state{};
  ASSERT_TRUE(open.IsOpen());
  ASSERT_TRUE(ReadState(open.Number(), &state));
  EXPECT_EQ(state.kind, FileKind::kFolder);
}

TEST_F(FileAccess, IdentityIsThatOfTheFileAndNotOfItsName) {
  Put("a", "x");
  Put("b", "x");
  std::filesystem::create_hard_link(PathOf(Place("a")), PathOf(Place("c")));
  FileState a{};
  FileState b{};
  FileState c{};
  const Descriptor open = OpenForReading(Place("a"));
  FileState opened{};

  ASSERT_TRUE(ReadState(Place("a"), &a) && ReadState(Place("b"), &b) && ReadState(Place("c"), &c) &&
              ReadState(open.Number(), &opened));

  EXPECT_TRUE(a.identity == c.identity);
  EXPECT_TRUE(a.identity == opened.identity);
  EXPECT_FALSE(a.identity == b.identity);
}

TEST_F(FileAccess, VersionChangesWhenTheFileGrows) {
  Put("a", "x");
  const Descriptor open = OpenForReading(Place("a"));
  FileState before{};
  FileState after{};
  ASSERT_TRUE(ReadState(open.Number(), &before));

  Put("a", "xy");

  ASSERT_TRUE(ReadState(open.Number(), &after));
  EXPECT_FALSE(before.version == after.version);
}

TEST_F(FileAccess, ReadsAtAPlaceAndBehindTheEndNothing) {
  Put("a", "0123456789");
  const Descriptor open = OpenForReading(Place("a"));
  char bytes[4] = {};

  EXPECT_EQ(ReadAt(open.Number(), bytes, sizeof bytes, 3), 4);
  EXPECT_EQ(std::string(bytes, sizeof bytes), "3456");
  EXPECT_EQ(ReadAt(open.Number(), bytes, sizeof bytes, 8), 2);
  EXPECT_EQ(ReadAt(open.Number(), bytes, sizeof bytes, 10), 0);
}

// A line end must not become two bytes, nor a Ctrl-Z the end.
TEST_F(FileAccess, BytesAreReadAsTheyAre) {
  const std::string bytes = "a\r\nb\n\x1A\r";
  Put("a", bytes);
  const Descriptor open = OpenForReading(Place("a"));
  char found[16] = {};

  EXPECT_EQ(ReadFrom(open.Number(), found, sizeof found), static_cast<std::int64_t>(bytes.size()));
  EXPECT_EQ(std::string(found, bytes.size()), bytes);
  EXPECT_EQ(SeekIn(open.Number(), -2, SEEK_END), static_cast<std::int64_t>(bytes.size()) - 2);
  EXPECT_EQ(SeekIn(open.Number(), 0, SEEK_CUR), static_cast<std::int64_t>(bytes.size()) - 2);
}

TEST_F(FileAccess, FolderThatIsNotThereIsInTrouble) {
  EXPECT_EQ(FolderTrouble(folder.Text()), 0);
  EXPECT_EQ(FolderTrouble(Place("none")), ENOENT);
}

}  // namespace
}  // namespace harvane
