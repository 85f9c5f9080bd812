#include "tool/validate/ExportList.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "host/ModuleExports.h"
#include "tests/support/TemporaryFolder.h"

namespace harvane {
namespace {

using support::TemporaryFolder;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

// A file as it is written by hand: numbers at their places.
class Image {
 public:
  explicit Image(std::size_t size) : bytes(size, '\0') {}
  Image& Put(std::size_t at, std::uint64_t number, int size) {
    for (int i = 0; i < size; ++i) {
      bytes[at + static_cast<std::size_t>(i)] = static_cast<char>(number >> (8 * i) & 0xFFU);
    }
    return *this;
  }
  Image& Put(std::size_t at, const std::string& text) {
    bytes.replace(at, text.size(), text);
    return *this;
  }
  const std::string& Bytes() const { return bytes; }

 private:
  std::string bytes;
};

// A Windows module with one section, that lies at 0x200 of the file and at 0x1000 in memory. It
// has three functions from ordinal 5 on: one called "second" and "first", a gap, and one without a
// name.
std::string WindowsModule(bool is64) {
  const std::size_t optional = 0x40 + 24;
  const std::size_t directories = optional + (is64 ? 112 : 96);
  const std::size_t section = optional + (is64 ? 240 : 224);
  const std::size_t exports = 0x200;
  Image image(0x400);
  image.Put(0, "MZ").Put(0x3C, 0x40, 4).Put(0x40, "PE");
  image.Put(0x40 + 6, 1, 2).Put(0x40 + 20, is64 ? 240 : 224, 2);
  image.Put(optional, is64 ? 0x20B : 0x10B, 2).Put(directories - 4, 16, 4);
  image.Put(directories, 0x1000, 4).Put(directories + 4, 0x100, 4);
  image.Put(section + 8, 0x200, 4).Put(section + 12, 0x1000, 4);
  image.Put(section + 16, 0x200, 4).Put(section + 20, 0x200, 4);
  image.Put(exports + 16, 5, 4).Put(exports + 20, 3, 4).Put(exports + 24, 2, 4);
  image.Put(exports + 28, 0x1040, 4).Put(exports + 32, 0x1050, 4).Put(exports + 36, 0x1060, 4);
  image.Put(0x240, 0x1100, 4).Put(0x248, 0x1104, 4);
  image.Put(0x250, 0x1070, 4).Put(0x254, 0x1080, 4);
  image.Put(0x270, "second").Put(0x280, "first");
  return image.Bytes();
}

// A shared object with nothing but its table of symbols: one that is shown, a protected one, and
// ones that are undefined, local or hidden.
std::string SharedObject(bool is64) {
  const int word = is64 ? 8 : 4;
  const std::size_t table = 0x200;
  const std::size_t size = is64 ? 64 : 40;
  const std::size_t symbolSize = is64 ? 24 : 16;
  Image image(0x400);
  image
      .Put(0,
           "\x7F"
           "ELF")
      .Put(4, is64 ? 2 : 1, 1)
      .Put(5, 1, 1);
  image.Put(is64 ? 40 : 32, table, word);
  image.Put(is64 ? 58 : 46, size, 2).Put(is64 ? 60 : 48, 3, 2);
  const std::size_t symbols = table + size;
  const std::size_t strings = table + 2 * size;
  image.Put(symbols + 4, 11, 4).Put(symbols + (is64 ? 24 : 16), 0x100, word);
  image.Put(symbols + (is64 ? 32 : 20), 5 * symbolSize, word).Put(symbols + (is64 ? 40 : 24), 2, 4);
  image.Put(strings + 4, 3, 4).Put(strings + (is64 ? 24 : 16), 0x80, word);
  const struct {
    const char* name;
    unsigned info;
    unsigned other;
    unsigned section;
  } made[] = {{"shown", 0x12, 0, 7},
              {"weak", 0x21, 3, 7},
              {"wanted", 0x12, 0, 0},
              {"local", 0x02, 0, 7},
              {"hidden", 0x12, 2, 7}};
  std::size_t at = 0x100;
  std::size_t text = 0x81;
  for (const auto& one : made) {
    image.Put(at, text - 0x80, 4);
    image.Put(at + (is64 ? 4 : 12), one.info, 1).Put(at + (is64 ? 5 : 13), one.other, 1);
    image.Put(at + (is64 ? 6 : 14), one.section, 2);
    image.Put(text, one.name);
    text += std::string(one.name).size() + 1;
    at += symbolSize;
  }
  return image.Bytes();
}

class ExportList : public testing::TestWithParam<bool> {
 protected:
  std::vector<std::string> NamesIn(const std::string& bytes) const {
    support::WriteBytes(folder.FileIn("module"), bytes);
    return ExportedNames(folder.FileIn("module"));
  }
  std::string RefusalOf(const std::string& bytes) const {
    try {
      NamesIn(bytes);
    } catch (const ModuleError& error) {
      return error.what();
    }
    return "";
  }

  const TemporaryFolder folder;
};

TEST_P(ExportList, WindowsModuleHasNamesAndOrdinals) {
  EXPECT_THAT(NamesIn(WindowsModule(GetParam())), ElementsAre("second", "first", "ordinal 7"));
}

TEST_P(ExportList, WindowsModuleWithoutExportsHasNone) {
  Image image(0x400);
  image.Put(0, WindowsModule(GetParam())).Put(0x40 + 24 + (GetParam() ? 112 : 96), 0, 8);
  EXPECT_THAT(NamesIn(image.Bytes()), IsEmpty());
}

TEST_P(ExportList, SharedObjectHasWhatItDefinesAndShows) {
  EXPECT_THAT(NamesIn(SharedObject(GetParam())), ElementsAre("shown", "weak"));
}

// Whatever bytes are wrong: an answer or a ModuleError, and never a look outside.
TEST_P(ExportList, DamagedFileIsReadOrRefused) {
  std::mt19937 chance(1);
  for (const std::string& whole : {WindowsModule(GetParam()), SharedObject(GetParam())}) {
    int refusals = 0;
    for (std::size_t size = 0; size < whole.size(); size += 41) {
      if (!RefusalOf(whole.substr(0, size)).empty()) ++refusals;
    }
    EXPECT_GT(refusals, 0);
    for (int round = 0; round < 60; ++round) {
      std::string bytes = whole;
      for (int change = 0; change < 8; ++change) {
        bytes[4 + chance() % (bytes.size() - 4)] =
            static_cast<char>(chance() % 2 ? 0xFF : chance());
      }
      RefusalOf(bytes);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Bits, ExportList, testing::Bool(),
                         [](const auto& info) { return info.param ? "Are64" : "Are32"; });

using ExportListOfFile = ExportList;

TEST_F(ExportListOfFile, ModuleOfThisBuildHasTheSixteen) {
  EXPECT_THAT(
      ExportedNames(HARVANE_MODULE),
      UnorderedElementsAre("xOpen", "xClose", "xGetInstanceInformation", "xGetParameterScheme",
                           "xGetErrorMessage", "xSetParameter", "xEnumInputInfo", "xSetInputInfo",
                           "xEnumOutputInfo", "xSetOutputInfo", "xStartSequenceEx", "xStartPassEx",
                           "xDeliverPcmUnit", "xFetchPcmUnit", "xEndPass", "xEndSequence"));
}

TEST_F(ExportListOfFile, WhatIsNoModuleIsRefused) {
  EXPECT_THAT(RefusalOf("text"), HasSubstr("neither a Windows module nor an ELF file"));
  EXPECT_THAT(RefusalOf("MZ"), HasSubstr("outside the file"));
  EXPECT_THAT(RefusalOf(""), HasSubstr("neither"));
  EXPECT_THROW(ExportedNames(folder.FileIn("missing")), ModuleError);
}

}  // namespace
}  // namespace harvane
