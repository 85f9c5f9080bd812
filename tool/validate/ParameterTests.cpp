// Parameter documents, and every result code.

#include "tool/validate/ModuleInstance.h"
#include "tool/validate/TestRun.h"
#include "tool/validate/ValidationTest.h"

namespace harvane {
namespace {

constexpr int kLimitSeconds = 60;
constexpr std::uint32_t kRate = 48000;

std::uint32_t CodeOf(TestRun& run, const std::string& document) {
  ModuleInstance job(run);
  return job.SetParameter(document);
}

void RefuseOtherTexts(TestRun& run) {
  for (const char* text :
       {"", " ", "not xml", "<parameter>", "<a/><b/>", "<parameter></Parameter>",
        "<parameter><audio></parameter></audio>", "<parameter>&nothing;</parameter>"}) {
    run.ExpectCode(3, CodeOf(run, text), Joined("xSetParameter of '", text, "'"));
  }
}

void RefuseMissingValues(TestRun& run) {
  run.ExpectCode(4, CodeOf(run, "<parameter/>"), "xSetParameter of an empty document");
  run.ExpectCode(4, CodeOf(run, "<other/>"), "xSetParameter of another document");
  for (const char* name :
       {"Loudness", "ShortTermLoudness", "MaxTP", "frameRate", "normalisationMode"}) {
    run.ExpectCode(4, CodeOf(run, DocumentOf(JobTexts(), name)),
                   Joined("xSetParameter without ", name));
    run.ExpectCode(4, CodeOf(run, DocumentOf(JobTexts(), "", name)),
                   Joined("xSetParameter with an empty ", name));
  }
  // Integers that may be absent may not be empty.
  for (const char* name : {"numberOfPasses", "numberOfGroups", "firstGroupChannelsFormat"}) {
    run.ExpectCode(0, CodeOf(run, DocumentOf(JobTexts(), name)),
                   Joined("xSetParameter without ", name));
    run.ExpectCode(4, CodeOf(run, DocumentOf(JobTexts(), "", name)),
                   Joined("xSetParameter with an empty ", name));
  }
  for (const char* name : {"logPath", "logFileName", "logEntryName"}) {
    run.ExpectCode(0, CodeOf(run, DocumentOf(JobTexts(), name)),
                   Joined("xSetParameter without ", name));
    run.ExpectCode(0, CodeOf(run, DocumentOf(JobTexts(), "", name)),
                   Joined("xSetParameter with an empty ", name));
  }
}

void GoOnAfterRefusal(TestRun& run) {
  ModuleInstance job(run);
  run.ExpectCode(3, job.SetParameter("no document"), "xSetParameter of no document");
  run.ExpectCode(4, job.SetParameter("<parameter/>"), "xSetParameter of an empty document");
  JobTexts texts;
  texts.numberOfPasses = "1";
  job.Begin(texts, kRate, 2);
  job.StartPass(0);
  job.Deliver({32767, 0});
  run.Expect(job.Fetch() == Samples{32767, 0}, "the job after two refusals gives other samples");
  job.EndSequence();
}

// Tells one pass from two by the out-flag of its first unit.
void ReadNumbersFromTheirStart(TestRun& run) {
  struct Case {
    const char* text;
    bool hasTwoPasses;
  };
  constexpr Case kCases[] = {{"1", false},     {"2", true},   {" \n\t2", true}, {"+2", true},
                             {"2 of 3", true}, {"2.9", true}, {"1e1", false},   {"many", false},
                             {"02", true},     {"0x2", false}};
  for (const Case& wanted : kCases) {
    ModuleInstance job(run);
    JobTexts texts;
    texts.numberOfPasses = wanted.text;
    run.RequireCode(0, job.SetParameter(DocumentOf(texts)), "xSetParameter");
    run.RequireCode(0, job.SetInput(FormatBlobOf(kRate, 2)), "xSetInputInfo");
    run.RequireCode(0, job.StartSequence(), "xStartSequenceEx");
    job.StartPass(0);
    const Samples samples = {0, 0};
    CountedUnit unit(samples.data(), 1, 2, Arrangement::kPlanar);
    std::uint32_t flag = 7;
    run.RequireCode(0, run.Module().xDeliverPcmUnit(job.Handle(), 0, unit.Record(), &flag),
                    "xDeliverPcmUnit");
    run.ExpectEqual(wanted.hasTwoPasses ? 0U : 1U, flag,
                    Joined("the out-flag with numberOfPasses '", wanted.text, "'"));
    job.EndSequence();
  }
}

void IgnoreTheUnknown(TestRun& run) {
  std::string document = DocumentOf(JobTexts());
  document.insert(document.find("<audio>"), "<!-- a comment --><more><deep>1</deep></more>");
  document.insert(document.find("<Loudness>"), "<unknown/>");
  run.ExpectCode(0, CodeOf(run, document), "xSetParameter with unknown elements");
  run.ExpectCode(0, CodeOf(run, "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n" + document),
                 "xSetParameter with a declaration");
}

void TakeValuesOutsideTheScheme(TestRun& run) {
  JobTexts texts;
  texts.Loudness = "-99";
  texts.ShortTermLoudness = "40";
  texts.MaxTP = "12.5";
  texts.normalisationMode = "17";
  texts.frameRate = "1234.5";
  texts.formats = {"2", "9", "-1", "0"};  // beyond the one group in use
  ModuleInstance job(run);
  job.Begin(texts, kRate, 2);
  job.EndSequence();
}

void RefuseUnknownLayouts(TestRun& run) {
  for (const char* format : {"0", "9", "-1", "200", "none"}) {
    ModuleInstance job(run);
    JobTexts texts;
    texts.formats = {format};
    run.RequireCode(0, job.SetParameter(DocumentOf(texts)), "xSetParameter");
    run.RequireCode(0, job.SetInput(FormatBlobOf(kRate, 2)), "xSetInputInfo");
    run.ExpectCode(3, job.StartSequence(), Joined("xStartSequenceEx with the layout ", format));
    run.RequireCode(0, job.SetParameter(DocumentOf(JobTexts())), "xSetParameter");
    run.ExpectCode(0, job.StartSequence(), "xStartSequenceEx with a layout again");
    job.EndSequence();
  }
}

void RefuseRatesWithoutWindows(TestRun& run) {
  ModuleInstance job(run);
  run.RequireCode(0, job.SetParameter(DocumentOf(JobTexts())), "xSetParameter");
  for (const std::uint32_t rate : {0xFFFFFFFFU, 0x80000000U}) {
    run.RequireCode(0, job.SetInput(FormatBlobOf(rate, 2)), "xSetInputInfo");
    run.ExpectCode(2, job.StartSequence(), Joined("xStartSequenceEx at ", rate, " Hz"));
    job.EndSequence();
  }
}

}  // namespace

void AddParameterTests(std::vector<ValidationTest>* tests) {
  const TestGroup group("Parameters.", kLimitSeconds, tests);
  group.Add("TextThatIsNoDocumentIsRefusedWithThree", RefuseOtherTexts);
  group.Add("MissingValueIsRefusedWithFour", RefuseMissingValues);
  group.Add("RefusalLeavesTheInstanceUsable", GoOnAfterRefusal);
  group.Add("NumbersAreReadFromTheirStart", ReadNumbersFromTheirStart);
  group.Add("UnknownElementsAreIgnored", IgnoreTheUnknown);
  group.Add("ValuesOutsideTheSchemeAreTaken", TakeValuesOutsideTheScheme);
  group.Add("UnknownLayoutIsRefusedAtTheSequenceWithThree", RefuseUnknownLayouts);
  group.Add("RateWithoutWindowsIsRefusedAtTheSequenceWithTwo", RefuseRatesWithoutWindows);
}

}  // namespace harvane
