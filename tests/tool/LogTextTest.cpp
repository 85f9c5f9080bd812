#include "tool/results/LogText.h"

#include <gtest/gtest.h>

namespace harvane {
namespace {

constexpr const char* kRows =
    "JobAt_5:4:9,Analysis,0,1,Stereo,-23.4,6.2,-1.8,00:12:03:09,-18.9,00:12:00:00,-14.2,"
    "00:12:02:22\n\r\n"
    "a,b \"x\",Process,2,2,Mono,-70.0,-70.0,-70.0,00:00:00:00,-70.0,00:00:00:00,-70.0,"
    "00:00:00:00\n\r\n"
    "late,Process,0,5,5.1,-inf,0.0,-0.5,01:02:03:004,nan,00:00:00:000,-3.0,00:00:01:500\n";

std::vector<LogOfFile> Logs() { return {{"my log.csv", ReadLog(kRows)}}; }

TEST(LogText, TableHasARowPerTrackAndPass) {
  EXPECT_EQ(LogTable(Logs()[0]),
            "my log.csv\n"
            "name         pass      channels  format  integrated    range         true peak     "
            "at            max short-term  at            max momentary  at\n"
            "                                         LUFS          LU            dBTP          "
            "              LUFS                          LUFS\n"
            "JobAt_5:4:9  analysis  1-2       stereo  -23.4         6.2           -1.8          "
            "00:12:03:09   -18.9           00:12:00:00   -14.2          00:12:02:22\n"
            "a,b \"x\"      process   3         mono    not measured  not measured  not measured  "
            "              not measured                  not measured\n"
            "late         process   1-6       5.1     -inf          0.0           -0.5          "
            "01:02:03.004  nan             00:00:00.000  -3.0           00:00:01.500\n");
}

TEST(LogText, CsvQuotesNamesAndLeavesOutWhatWasNotMeasured) {
  EXPECT_EQ(LogCsv(Logs()),
            "file,line,name,pass,first_channel,last_channel,format,integrated_lufs,range_lu,"
            "true_peak_dbtp,true_peak_time,max_short_term_lufs,max_short_term_time,"
            "max_momentary_lufs,max_momentary_time\n"
            "my log.csv,1,JobAt_5:4:9,analysis,1,2,stereo,-23.4,6.2,-1.8,00:12:03:09,-18.9,"
            "00:12:00:00,-14.2,00:12:02:22\n"
            "my log.csv,3,\"a,b \"\"x\"\"\",process,3,3,mono,,,,,,,,\n"
            "my log.csv,5,late,process,1,6,5.1,-inf,0.0,-0.5,01:02:03.004,nan,00:00:00.000,-3.0,"
            "00:00:01.500\n");
}

TEST(LogText, JsonLinesHaveNullForWhatWasNotMeasuredOrIsNoNumber) {
  EXPECT_EQ(
      LogJsonLines(Logs()),
      R"({"file":"my log.csv","line":1,"name":"JobAt_5:4:9","pass":"analysis","firstChannel":1,)"
      R"("lastChannel":2,"format":"stereo","integratedLoudness":-23.4,"loudnessRange":6.2,)"
      R"("maxTruePeak":{"value":-1.8,"time":"00:12:03:09","seconds":null},)"
      R"("maxShortTerm":{"value":-18.9,"time":"00:12:00:00","seconds":null},)"
      R"("maxMomentary":{"value":-14.2,"time":"00:12:02:22","seconds":null}})"
      "\n"
      R"({"file":"my log.csv","line":3,"name":"a,b \"x\"","pass":"process","firstChannel":3,)"
      R"("lastChannel":3,"format":"mono","integratedLoudness":null,"loudnessRange":null,)"
      R"("maxTruePeak":null,"maxShortTerm":null,"maxMomentary":null})"
      "\n"
      R"({"file":"my log.csv","line":5,"name":"late","pass":"process","firstChannel":1,)"
      R"("lastChannel":6,"format":"5.1","integratedLoudness":null,"loudnessRange":0.0,)"
      R"("maxTruePeak":{"value":-0.5,"time":"01:02:03.004","seconds":3723.004},)"
      R"("maxShortTerm":null,"maxMomentary":{"value":-3.0,"time":"00:00:01.500","seconds":1.5}})"
      "\n");
}

TEST(LogText, JsonHasTheProblemsBesideTheRows) {
  const std::vector<LogOfFile> logs = {{"a.csv", ReadLog("junk\n")}, {"b.csv", ReadLog("")}};
  EXPECT_EQ(LogJson(logs), R"({
  "rows": [],
  "problems": [
    {
      "file": "a.csv",
      "line": 1,
      "reason": "it has 1 fields, and a row has 13"
    }
  ]
}
)");
}

TEST(LogText, ProblemsAreNamedByFileAndLine) {
  using Lines = std::vector<std::string>;
  EXPECT_EQ(LogProblemLines({"a.csv", ReadLog("\njunk\n")}),
            Lines{"a.csv:2: it has 1 fields, and a row has 13"});
  LogReading reading;
  reading.problems = {{0, "cannot be opened"}};
  reading.problemCount = 3;
  reading.isMemoryExhausted = true;
  EXPECT_EQ(LogProblemLines({"a.csv", reading}),
            (Lines{"a.csv: cannot be opened", "a.csv: and 2 more",
                   "a.csv: memory exhausted: the rest was not read"}));
}

TEST(LogText, OnlyAFileThatCouldNotBeReadIsUnread) {
  EXPECT_FALSE(IsUnread(ReadLog("junk\n")));
  EXPECT_TRUE(IsUnread(ReadLogFile("no such file")));
  LogReading exhausted;
  exhausted.isMemoryExhausted = true;
  EXPECT_TRUE(IsUnread(exhausted));
}

}  // namespace
}  // namespace harvane
