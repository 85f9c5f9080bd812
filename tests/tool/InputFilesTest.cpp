#include "tool/InputFiles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <sstream>

#include "host/FileError.h"
#include "tests/support/OrdinaryUser.h"
#include "tests/support/TemporaryFolder.h"

namespace harvane {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;

// A folder that is the working folder while it lives, so that names are short.
class InputFilesTest : public testing::Test {
 protected:
  InputFilesTest() : before(fs::current_path()) { fs::current_path(folder.Path()); }
  ~InputFilesTest() override { fs::current_path(before); }

  static void Make(std::initializer_list<const char*> names) {
    for (const fs::path name : names) {
      if (name.has_parent_path()) fs::create_directories(name.parent_path());
      support::WriteBytes(name.string(), "x");
    }
  }

  // The options of a command line, as a command that writes understands them.
  static InputOptions Parsed(const std::vector<std::string>& words) {
    InputOptions options;
    CLI::App app;
    CLI::App* const command = app.add_subcommand("normalise", "");
    AddInputOptions(command, &options);
    AddOutputOptions(command, &options);
    std::vector<std::string> arguments = {"normalise"};
    arguments.insert(arguments.end(), words.begin(), words.end());
    app.parse(ArgumentsForParsing(arguments));
    return options;
  }

  // Of a command that only reads.
  static std::vector<InputFile> FilesFor(const std::vector<std::string>& words,
                                         const std::string& standardInput = "") {
    InputOptions options = Parsed(words);
    options.isWriting = false;
    std::istringstream in(standardInput);
    return FilesOf(options, in);
  }
  static std::vector<std::string> InputsFor(const std::vector<std::string>& words,
                                            const std::string& standardInput = "") {
    std::vector<std::string> inputs;
    for (const InputFile& file : FilesFor(words, standardInput)) {
      inputs.push_back(file.input);
    }
    return inputs;
  }

  static std::vector<InputFile> WritingFilesFor(const std::vector<std::string>& words) {
    std::istringstream in;
    return FilesOf(Parsed(words), in);
  }
  static std::vector<std::string> OutputsFor(const std::vector<std::string>& words) {
    std::vector<std::string> outputs;
    for (const InputFile& file : WritingFilesFor(words)) outputs.push_back(file.output);
    return outputs;
  }
  static std::string UsageErrorOf(const std::vector<std::string>& words) {
    try {
      WritingFilesFor(words);
      return "(accepted)";
    } catch (const UsageError& wrong) {
      return wrong.what();
    }
  }

  support::TemporaryFolder folder;
  fs::path before;
};

using InputFiles = InputFilesTest;

TEST_F(InputFiles, NamedFilesStayInTheirOrderWhateverTheirEnding) {
  Make({"b.wav", "a.mp3"});
  EXPECT_THAT(InputsFor({"b.wav", "a.mp3", "gone.wav"}), ElementsAre("b.wav", "a.mp3", "gone.wav"));
}

TEST_F(InputFiles, FoldersGiveTheirAudioFilesByTheBytesOfTheirNames) {
  Make({"in/b.wav", "in/B.FLAC", "in/a/z.caf", "in/a/notes.txt", "in/a-1.w64", "in/c.aif",
        "in/c.aiff", "in/c.rf64", "in/.hidden.wav", "in/.trash/x.wav"});
  EXPECT_THAT(InputsFor({"-r", "in"}),
              ElementsAre("in/B.FLAC", "in/a/z.caf", "in/a-1.w64", "in/b.wav", "in/c.aif",
                          "in/c.aiff", "in/c.rf64"));
}

TEST_F(InputFiles, AFolderWithoutRecursionStaysAsAFileThatWillFail) {
  Make({"in/b.wav", "a.wav"});
  EXPECT_THAT(InputsFor({"in", "a.wav"}), ElementsAre("in", "a.wav"));
}

TEST_F(InputFiles, PatternsPickFromFoldersAndNotFromNamedFiles) {
  Make({"in/day1/a.wav", "in/day1/a_old.wav", "in/day1/b.mp2", "in/day2/a.wav", "in/tmp/a.wav",
        "x_old.wav"});
  EXPECT_THAT(InputsFor({"-r", "in", "x_old.wav", "--exclude", "*_OLD.wav", "--exclude", "tmp"}),
              ElementsAre("in/day1/a.wav", "in/day2/a.wav", "x_old.wav"));
  EXPECT_THAT(InputsFor({"-r", "--include", "*.mp2", "in"}), ElementsAre("in/day1/b.mp2"));
  EXPECT_THAT(InputsFor({"-r", "--include", "day?/a.wav", "--exclude", "*2/*", "in"}),
              ElementsAre("in/day1/a.wav"));
}

TEST_F(InputFiles, OneFileIsTakenOnceHoweverItIsWritten) {
  Make({"in/a.wav", "in/b.wav"});
  fs::create_directory_symlink("in", "link");
  EXPECT_THAT(InputsFor({"in/b.wav", "-r", "in", "./in//a.wav", "link/a.wav", "in/../in/b.wav",
                         folder.FileIn("in/a.wav")}),
              ElementsAre("in/b.wav", "in/a.wav"));
}

TEST_F(InputFiles, LinksToFilesAreTakenAndLinkedFoldersAreNotEntered) {
  Make({"in/a.wav", "other/b.wav"});
  fs::create_symlink("a.wav", "in/same.wav");
  fs::create_directory_symlink("..", "in/loop");
  EXPECT_THAT(InputsFor({"-r", "in"}), ElementsAre("in/a.wav", "in/same.wav"));
}

TEST_F(InputFiles, AFolderThatCannotBeListedCostsOnlyItself) {
  Make({"in/a.wav", "in/closed/b.wav"});
  fs::permissions("in/closed", fs::perms::none);
  fs::permissions(folder.Path(), fs::perms::all);
  std::vector<InputFile> files;
  {
    const support::OrdinaryUser user;
    ASSERT_TRUE(user.IsOrdinary());
    files = FilesFor({"-r", "in"});
  }
  fs::permissions("in/closed", fs::perms::owner_all);
  ASSERT_EQ(files.size(), 2U);
  EXPECT_EQ(files[0].input, "in/a.wav");
  EXPECT_EQ(files[0].error, "");
  EXPECT_EQ(files[1].input, "in/closed");
  EXPECT_EQ(files[1].error, "in/closed: cannot be listed: Permission denied");
}

TEST_F(InputFiles, ListsNameOneFileALine) {
  support::WriteBytes("list", "b.wav\r\n\nwith space.wav\na.wav");
  EXPECT_THAT(InputsFor({"--files-from", "list"}), ElementsAre("b.wav", "with space.wav", "a.wav"));
  EXPECT_THAT(InputsFor({"c.wav", "--files-from", "-"}, "b.wav\n"), ElementsAre("c.wav", "b.wav"));
}

TEST_F(InputFiles, ListsWithNulsKeepEveryCharacterOfAName) {
  const std::string list("two\nlines.wav\0end\r\0", 19);
  EXPECT_THAT(InputsFor({"-0", "--files-from", "-"}, list), ElementsAre("two\nlines.wav", "end\r"));
  EXPECT_THROW(FilesFor({"--files-from", "-"}, list), UsageError);
}

TEST_F(InputFiles, ListsMayNameFolders) {
  Make({"in/a.wav"});
  EXPECT_THAT(InputsFor({"-r", "--files-from", "-"}, "in\n"), ElementsAre("in/a.wav"));
}

TEST_F(InputFiles, ShardsShareTheSortedListByPosition) {
  const std::string list = "e\nb\na\nd\nc\n";
  const std::string turned = "a\nb\nc\nd\ne\n";
  for (const std::string& names : {list, turned}) {
    EXPECT_THAT(InputsFor({"--files-from", "-", "--shard", "1/2"}, names),
                ElementsAre("a", "c", "e"));
    EXPECT_THAT(InputsFor({"--files-from", "-", "--shard", "2/2"}, names), ElementsAre("b", "d"));
    EXPECT_THAT(InputsFor({"--files-from", "-", "--shard", "3/4"}, names), ElementsAre("c"));
    EXPECT_THAT(InputsFor({"--files-from", "-", "--shard", "7/9"}, names), ElementsAre());
  }
}

TEST_F(InputFiles, ShardsThatAreNoPartOfAWholeAreRefused) {
  for (const char* wrong : {"0/2", "3/2", "1", "1/", "/2", "1/2x", "-1/2", "a/b", "1 /2", "1/0"}) {
    EXPECT_THROW(Parsed({"a.wav", "--shard", wrong}), CLI::ValidationError) << wrong;
  }
}

TEST_F(InputFiles, OutputsKeepTheFoldersBelowTheGivenOne) {
  Make({"in/a.wav", "in/sub/deep/b.WAV", "c.flac"});
  EXPECT_THAT(OutputsFor({"-r", "in", "./c.flac", "-d", "out"}),
              ElementsAre("out/a.wav", "out/sub/deep/b.WAV", "out/c.flac"));
}

TEST_F(InputFiles, OutputsKeepTheFoldersBelowTheBase) {
  Make({"in/x/a.wav", "in/y/a.wav"});
  EXPECT_THAT(OutputsFor({"in/x/a.wav", "in/y/a.wav", "-d", "out", "--base", "in"}),
              ElementsAre("out/x/a.wav", "out/y/a.wav"));
  EXPECT_THAT(OutputsFor({"a.wav", "-d", "out", "--base", "."}), ElementsAre("out/a.wav"));
  EXPECT_EQ(UsageErrorOf({"in/x/a.wav", "-d", "out", "--base", "in/y"}),
            "in/x/a.wav: is not in in/y, which --base names");
}

TEST_F(InputFiles, SuffixAndContainerChangeTheNameAroundItsEnding) {
  EXPECT_THAT(OutputsFor({"a.wav", "show.2024", "bare", "-d", "out", "--suffix", "_r128"}),
              ElementsAre("out/a_r128.wav", "out/show.2024_r128.wav", "out/bare_r128.wav"));
  EXPECT_THAT(OutputsFor({"a.b.wav", "show.2024", "-d", "out", "--container", "flac"}),
              ElementsAre("out/a.b.flac", "out/show.2024.flac"));
  EXPECT_THAT(OutputsFor({"a.wav", "-d", ".", "--container", "w64"}), ElementsAre("./a.w64"));
  EXPECT_THROW(Parsed({"a.wav", "-d", "out", "--container", "mp3"}), CLI::ValidationError);
  EXPECT_THROW(Parsed({"a.wav", "-d", "out", "--suffix", "x/y"}), CLI::ValidationError);
  EXPECT_THROW(Parsed({"a.wav", "--suffix", "x"}), CLI::RequiresError);
  EXPECT_THROW(Parsed({"a.wav", "-o", "x", "-d", "out"}), CLI::ExcludesError);
}

TEST_F(InputFiles, TheOnlyFileMayHaveAnOutputOfItsOwn) {
  EXPECT_THAT(OutputsFor({"a.wav", "-o", "b.flac"}), ElementsAre("b.flac"));
  EXPECT_EQ(UsageErrorOf({"a.wav", "c.wav", "-o", "b.flac"}),
            "2 files cannot all become b.flac; a folder, with -d, would be right");
}

TEST_F(InputFiles, TwoInputsWithOneOutputAreRefused) {
  Make({"x/a.wav", "y/a.wav"});
  EXPECT_EQ(UsageErrorOf({"x/a.wav", "y/a.wav", "-d", "out"}),
            "x/a.wav and y/a.wav would both become out/a.wav");
  EXPECT_EQ(UsageErrorOf({"x/a.wav", "x/a.flac", "-d", "out", "--container", "caf"}),
            "x/a.wav and x/a.flac would both become out/a.caf");
  EXPECT_EQ(UsageErrorOf({"x/a.wav", "x/a.flac", "-d", "out"}), "(accepted)");
}

TEST_F(InputFiles, MeetingOutputsAreSeenByEveryShard) {
  Make({"x/a.wav", "y/a.wav"});
  for (const char* shard : {"1/2", "2/2"}) {
    EXPECT_EQ(UsageErrorOf({"x/a.wav", "y/a.wav", "-d", "out", "--shard", shard}),
              "x/a.wav and y/a.wav would both become out/a.wav");
  }
}

TEST_F(InputFiles, AnOutputThatIsAnInputIsRefused) {
  Make({"x/a.wav", "y/a.wav"});
  fs::create_symlink("x/a.wav", "link.wav");
  EXPECT_THAT(UsageErrorOf({"x/a.wav", "-d", "x", "--overwrite"}),
              HasSubstr("x/a.wav would be written over by what becomes of x/a.wav"));
  EXPECT_THAT(UsageErrorOf({"x/a.wav", "-o", "link.wav", "--overwrite"}),
              HasSubstr("x/a.wav would be written over by what becomes of x/a.wav"));
  EXPECT_THAT(UsageErrorOf({"y/a.wav", "x/b.wav", "-d", "./x/../x", "-r", "x", "--overwrite"}),
              HasSubstr("x/a.wav would be written over by what becomes of y/a.wav"));
  EXPECT_EQ(UsageErrorOf({"x/a.wav", "-d", "x", "--suffix", "_r128"}), "(accepted)");
}

TEST_F(InputFiles, AnOutputThatIsThereIsAnErrorOfItsFileAlone) {
  Make({"a.wav", "b.wav", "out/a.wav"});
  const std::vector<InputFile> files = WritingFilesFor({"a.wav", "b.wav", "-d", "out"});
  ASSERT_EQ(files.size(), 2U);
  EXPECT_EQ(files[0].error, "out/a.wav: is there already; --overwrite would be right");
  EXPECT_EQ(files[1].error, "");
  EXPECT_EQ(WritingFilesFor({"a.wav", "b.wav", "-d", "out", "--overwrite"})[0].error, "");
}

TEST_F(InputFiles, TheOutputFolderIsNoInput) {
  Make({"in/a.wav", "in/out/b.wav"});
  EXPECT_THAT(OutputsFor({"-r", "in", "-d", "in/out"}), ElementsAre("in/out/a.wav"));
}

TEST_F(InputFiles, WhatCannotBeBegunIsSaidInOneLine) {
  Make({"empty/notes.txt", "file"});
  EXPECT_EQ(UsageErrorOf({"-d", "out"}),
            "no file is named; FILE... or --files-from LIST would be right");
  EXPECT_EQ(UsageErrorOf({"a.wav"}), "no output is named; -o OUT or -d OUTDIR would be right");
  EXPECT_EQ(UsageErrorOf({"-r", "empty", "-d", "out"}), "there is no audio file in what was named");
  EXPECT_EQ(UsageErrorOf({"--files-from", "gone", "-d", "out"}), "gone: cannot be opened");
  EXPECT_EQ(UsageErrorOf({"--files-from", ".", "-d", "out"}), ".: cannot be read");
  EXPECT_EQ(UsageErrorOf({"a.wav", "-d", "file"}), "file: is not a folder");
  EXPECT_THROW(Parsed({"a.wav", "-0"}), CLI::RequiresError);
  EXPECT_THROW(Parsed({""}), CLI::ValidationError);
}

TEST_F(InputFiles, OptionsEndAtTwoDashesAndStandAnywhere) {
  EXPECT_THAT(InputsFor({"a.wav", "--include", "*.wav", "b.wav", "--", "-r", "--", "c.wav"}),
              ElementsAre("a.wav", "b.wav", "./-r", "./--", "c.wav"));
}

TEST_F(InputFiles, FoldersForOutputsAreMadeWhenTheyAreNeeded) {
  MakeFolderFor("out/deep/a.wav");
  MakeFolderFor("out/deep/a.wav");
  MakeFolderFor("a.wav");
  EXPECT_TRUE(fs::is_directory("out/deep"));
  support::WriteBytes("file", "x");
  EXPECT_THROW(MakeFolderFor("file/deep/a.wav"), FileError);
}

}  // namespace
}  // namespace harvane
