#include "host/PendingFile.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "host/FileError.h"
#include "tests/support/TemporaryFolder.h"

namespace harvane {
namespace {

using testing::HasSubstr;

constexpr FileIdentity kNoInput{};

FileIdentity IdentityOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(stat(path.c_str(), &status), 0);
  return {status.st_dev, status.st_ino};
}

class PendingFileTest : public testing::TestWithParam<PendingFile::Naming> {
 protected:
  static void Put(const PendingFile& file, const std::string& text) {
    ASSERT_EQ(write(file.Number(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }
  std::size_t Count() const {
    return static_cast<std::size_t>(
        std::distance(std::filesystem::directory_iterator(folder.Path()), {}));
  }
  support::TemporaryFolder folder;
};

std::string RefusalOf(const std::string& path, const FileIdentity& input) {
  try {
    const PendingFile file(path, input);
    return "(accepted)";
  } catch (const FileError& refusal) {
    return refusal.what();
  }
}

TEST_P(PendingFileTest, AppearsOnlyByCommit) {
  const std::string path = folder.FileIn("out");
  {
    PendingFile file(path, kNoInput, GetParam());
    Put(file, "whole");
    EXPECT_FALSE(std::filesystem::exists(path));
    file.Commit();
    EXPECT_EQ(support::ReadBytes(path), "whole");
  }
  EXPECT_EQ(Count(), 1U);
}

TEST_P(PendingFileTest, WithoutCommitNothingStays) {
  {
    const PendingFile file(folder.FileIn("out"), kNoInput, GetParam());
    Put(file, "half");
  }
  EXPECT_EQ(Count(), 0U);
}

TEST_P(PendingFileTest, AnExistingFileStaysUntilCommit) {
  const std::string path = folder.FileIn("out");
  support::WriteBytes(path, "former");
  PendingFile file(path, kNoInput, GetParam());
  Put(file, "new");
  EXPECT_EQ(support::ReadBytes(path), "former");
  file.Commit();
  EXPECT_EQ(support::ReadBytes(path), "new");
}

TEST_P(PendingFileTest, ASymbolicLinkStaysALink) {
  support::WriteBytes(folder.FileIn("real"), "former");
  std::filesystem::create_symlink("real", folder.Path() / "link");
  PendingFile file(folder.FileIn("link"), kNoInput, GetParam());
  Put(file, "new");
  file.Commit();
  EXPECT_TRUE(std::filesystem::is_symlink(folder.Path() / "link"));
  EXPECT_EQ(support::ReadBytes(folder.FileIn("real")), "new");
}

TEST_P(PendingFileTest, AnInputThatGotTheNameMeanwhileIsNotReplaced) {
  const std::string input = folder.FileIn("in");
  support::WriteBytes(input, "input");
  PendingFile file(folder.FileIn("out"), IdentityOf(input), GetParam());
  Put(file, "new");
  std::filesystem::create_hard_link(input, folder.Path() / "out");
  EXPECT_THROW(file.Commit(), FileError);
  EXPECT_EQ(support::ReadBytes(input), "input");
}

TEST_P(PendingFileTest, AnEndingSignalLeavesNothing) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    EXPECT_EXIT(
        {
          const PendingFile file(folder.FileIn("out"), kNoInput, GetParam());
          Put(file, "half");
          std::raise(signal);
        },
        testing::KilledBySignal(signal), "");
    EXPECT_EQ(Count(), 0U) << signal;
  }
}

TEST_P(PendingFileTest, LeavesAFileAloneThatIsThereWhereThatIsAsked) {
  const std::string path = folder.FileIn("out");
  support::WriteBytes(path, "former");
  try {
    const PendingFile file(path, kNoInput, GetParam(), PendingFile::Existing::kRefused);
    ADD_FAILURE() << "accepted";
  } catch (const FileError& refusal) {
    EXPECT_EQ(std::string(refusal.what()), path + ": is there already");
  }
  EXPECT_EQ(support::ReadBytes(path), "former");
}

TEST_P(PendingFileTest, LeavesAFileAloneThatCameMeanwhileWhereThatIsAsked) {
  const std::string path = folder.FileIn("out");
  {
    PendingFile file(path, kNoInput, GetParam(), PendingFile::Existing::kRefused);
    Put(file, "whole");
    support::WriteBytes(path, "meanwhile");
    EXPECT_THROW(file.Commit(), FileError);
  }
  EXPECT_EQ(support::ReadBytes(path), "meanwhile");
  EXPECT_EQ(Count(), 1U);
}

TEST_P(PendingFileTest, AppearsAlsoWhereNothingMayBeReplaced) {
  const std::string path = folder.FileIn("out");
  {
    PendingFile file(path, kNoInput, GetParam(), PendingFile::Existing::kRefused);
    Put(file, "whole");
    file.Commit();
  }
  EXPECT_EQ(support::ReadBytes(path), "whole");
  EXPECT_EQ(Count(), 1U);
}

INSTANTIATE_TEST_SUITE_P(Namings, PendingFileTest,
                         testing::Values(PendingFile::Naming::kNamelessIfPossible,
                                         PendingFile::Naming::kHidden),
                         [](const auto& info) {
                           return info.param == PendingFile::Naming::kHidden ? "Hidden"
                                                                             : "Nameless";
                         });

TEST(PendingFile, RefusesTheInputByNameAndThroughLinks) {
  const support::TemporaryFolder folder;
  const std::string input = folder.FileIn("in");
  support::WriteBytes(input, "input");
  std::filesystem::create_hard_link(input, folder.Path() / "hard");
  std::filesystem::create_symlink("in", folder.Path() / "soft");
  const FileIdentity identity = IdentityOf(input);
  for (const char* name : {"in", "hard", "soft", "./in"}) {
    EXPECT_THAT(RefusalOf(folder.FileIn(name), identity), HasSubstr("is the input itself")) << name;
  }
}

TEST(PendingFile, RefusesWhatIsNoFile) {
  const support::TemporaryFolder folder;
  EXPECT_THAT(RefusalOf(folder.Text(), kNoInput), HasSubstr("is a folder"));
  EXPECT_THAT(RefusalOf("/dev/null", kNoInput), HasSubstr("is not a regular file"));
}

TEST(PendingFile, AMissingFolderIsAnErrorAtOnce) {
  const support::TemporaryFolder folder;
  EXPECT_THAT(RefusalOf(folder.FileIn("none/out"), kNoInput), HasSubstr("No such file"));
}

}  // namespace
}  // namespace harvane
