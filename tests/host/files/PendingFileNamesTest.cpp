#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "host/FileError.h"
#include "host/PendingFile.h"
#include "tests/support/TemporaryFolder.h"

namespace harvane {
namespace {

using testing::HasSubstr;

constexpr FileIdentity kNoInput{};

class PendingFileNames : public testing::Test {
 protected:
  std::string Place(const std::string& name) const { return folder.FileIn("") + name; }
  void Put(const std::string& name, const std::string& bytes) const {
    std::ofstream(PathOf(Place(name)), std::ios::binary) << bytes;
  }
  std::string Bytes(const std::string& name) const {
    std::ifstream file(PathOf(Place(name)), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }
  std::size_t Count() const {
    return static_cast<std::size_t>(
        std::distance(std::filesystem::directory_iterator(folder.Path()), {}));
  }
  static void Write(const PendingFile& file, const std::string& text) {
    ASSERT_EQ(WriteTo(file.Number(), text.data(), text.size()),
              static_cast<std::int64_t>(text.size()));
  }

  support::TemporaryFolder folder;
};

TEST_F(PendingFileNames, ForeignNameAppearsWholeByCommit) {
  const std::string name = "\xC3\xBC\xCE\xA9.wav";
  {
    PendingFile file(Place(name), kNoInput);
    Write(file, "a\nb");
    EXPECT_FALSE(std::filesystem::exists(PathOf(Place(name))));
    file.Commit();
    EXPECT_EQ(Bytes(name), "a\nb");
  }
  EXPECT_EQ(Count(), 1U);
}

TEST_F(PendingFileNames, WithoutCommitNothingStays) {
  for (const auto naming :
       {PendingFile::Naming::kNamelessIfPossible, PendingFile::Naming::kHidden}) {
    PendingFile file(Place("out"), kNoInput, naming);
    Write(file, "half");
  }
  EXPECT_EQ(Count(), 0U);
}

TEST_F(PendingFileNames, CommitReplacesWhatIsThere) {
  Put("out", "former");
  for (const auto naming :
       {PendingFile::Naming::kNamelessIfPossible, PendingFile::Naming::kHidden}) {
    PendingFile file(Place("out"), kNoInput, naming);
    Write(file, "new");
    file.Commit();
  }
  EXPECT_EQ(Bytes("out"), "new");
  EXPECT_EQ(Count(), 1U);
}

TEST_F(PendingFileNames, RefusedExistingIsLookedForAgainAtCommit) {
  for (const auto naming :
       {PendingFile::Naming::kNamelessIfPossible, PendingFile::Naming::kHidden}) {
    std::filesystem::remove(PathOf(Place("out")));
    PendingFile file(Place("out"), kNoInput, naming, PendingFile::Existing::kRefused);
    Write(file, "new");
    Put("out", "meanwhile");
    EXPECT_THROW(file.Commit(), FileError);
    EXPECT_EQ(Bytes("out"), "meanwhile");
  }
  EXPECT_EQ(Count(), 1U);
}

TEST_F(PendingFileNames, InputIsRefusedUnderAnotherName) {
  Put("in", "audio");
  std::filesystem::create_hard_link(PathOf(Place("in")), PathOf(Place("link")));
  FileState state{};
  ASSERT_TRUE(ReadState(Place("in"), &state));
  try {
    const PendingFile file(Place("link"), state.identity);
    FAIL() << "accepted";
  } catch (const FileError& refusal) {
    EXPECT_THAT(refusal.what(), HasSubstr("is the input itself"));
  }
}

TEST_F(PendingFileNames, FolderThatIsNotThereIsRefused) {
  EXPECT_THROW(PendingFile(Place("none/out"), kNoInput), FileError);
}

}  // namespace
}  // namespace harvane
