// harvane info, scheme and params as a user runs them.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "tests/host/cli/CliSupport.h"
#include "tests/support/TemporaryFolder.h"

namespace harvane {
namespace {

using support::RunResult;
using support::Workplace;

class InfoCommands : public testing::Test {
 protected:
  const Workplace place;
};

TEST_F(InfoCommands, InfoPrintsIdentityNameAndFormats) {
  const RunResult run = place.Run("info --module " HARVANE_MODULE);
  EXPECT_EQ(run.code, 0) << run.err;
  EXPECT_NE(run.out.find("id           9b416ed2075c4af3a81d602eb5c93374\n"), std::string::npos);
  EXPECT_NE(run.out.find("name         Harvane\n"), std::string::npos);
  EXPECT_NE(run.out.find("LPCM: 48000 Hz, any number of channels, 16 bits\n"), std::string::npos);
  EXPECT_NE(run.out.find("VIDE: any frame rate\n"), std::string::npos);
}

TEST_F(InfoCommands, BuiltInModuleSaysTheSameAsTheFile) {
  const std::string file = place.Run("info -M " HARVANE_MODULE).out;
  const std::string builtIn = place.Run("info").out;
  EXPECT_EQ(file.substr(file.find('\n')), builtIn.substr(builtIn.find('\n')));
  EXPECT_EQ(place.Run("scheme").out, place.Run("scheme -M " HARVANE_MODULE).out);
}

TEST_F(InfoCommands, FileThatIsNoModuleIsAnError) {
  support::WriteBytes(place.FileIn("text.rpi"), "no module");
  const RunResult run = place.Run("info -M text.rpi");
  EXPECT_EQ(run.code, 1);
  EXPECT_EQ(run.out, "");
  EXPECT_NE(run.err.find("cannot be loaded"), std::string::npos) << run.err;
  EXPECT_EQ(place.Run("scheme -M missing.rpi").code, 1);
}

TEST_F(InfoCommands, SchemeIsTheModulesTextWithoutItsNul) {
  const std::string scheme = place.Run("scheme").out;
  EXPECT_EQ(scheme.substr(0, 23), "<scheme version=\"1.00\">");
  const std::string ending = "</scheme>\n\n";
  EXPECT_EQ(scheme.substr(scheme.size() - ending.size()), ending);
}

TEST_F(InfoCommands, SchemeAsTableHasARowForEachParameter) {
  const std::string table = place.Run("scheme -f text").out;
  EXPECT_EQ(std::count(table.begin(), table.end(), '\n'), 1 + 14);
  EXPECT_NE(table.find("\nnormalization/Loudness           float   -23.0   Target Program Loudness "
                       "(LUFS)  -30.0 to -12.0\n"),
            std::string::npos)
      << table;
}

TEST_F(InfoCommands, ParamsWritesWhatTheModuleReads) {
  const RunResult run = place.Run(
      "params --passes 1 --layout 5.1+2,2 --loudness -24 --frame-rate 59.94 --entry-name 'a & b' "
      "-o job.xml");
  EXPECT_EQ(run.code, 0) << run.err;
  EXPECT_EQ(run.out, "");
  const std::string document = support::ReadBytes(place.FileIn("job.xml"));
  for (const char* element :
       {"<numberOfPasses>1<", "<numberOfGroups>2<", "<firstGroupChannelsFormat>7<",
        "<secondGroupChannelsFormat>2<", "<Loudness>-24<", "<MaxTP>-1<", "<frameRate>59,94<",
        "<logEntryName>a &amp; b<", "<normalisationMode>0<"}) {
    EXPECT_NE(document.find(element), std::string::npos) << element;
  }
  EXPECT_EQ(place
                .Run("params --passes 1 --layout 5.1+2,2 --loudness -24 --frame-rate 59.94 "
                     "--entry-name 'a & b'")
                .out,
            document);
}

TEST_F(InfoCommands, ParamsOutsideTheSchemeAreWrongUsage) {
  for (const char* options : {"--loudness -31", "--true-peak 1", "--layout 3", "--passes 3",
                              "--frame-rate 12", "--mode loud", "--loudness nan"}) {
    const RunResult run = place.Run(std::string("params ") + options);
    EXPECT_EQ(run.code, 2) << options;
    EXPECT_EQ(run.out, "") << options;
  }
  EXPECT_EQ(place.Run("params -o missing/job.xml").code, 1);
}

}  // namespace
}  // namespace harvane
