// Records and blobs, byte by byte, and who ends them.

#include <algorithm>
#include <array>
#include <cstring>

#include "tool/validate/ModuleInstance.h"
#include "tool/validate/TestRun.h"
#include "tool/validate/ValidationTest.h"

namespace harvane {
namespace {

constexpr int kLimitSeconds = 60;
constexpr std::uint32_t kRate = 48000;
constexpr std::uint32_t kJunkFlag = 0xABCD;

// Differences of two blobs, as a test's expectation.
void ExpectBytes(TestRun& run, const Bytes& wanted, const Bytes& got, const std::string& what) {
  run.Expect(got.size() == wanted.size(),
             Joined(what, " has ", got.size(), " bytes, not ", wanted.size()));
  const std::size_t common = std::min(wanted.size(), got.size());
  for (std::size_t i = 0; i < common; ++i) {
    if (wanted[i] == got[i]) continue;
    run.Expect(false,
               Joined("byte ", i, " of ", what, " is ", int{got[i]}, ", not ", int{wanted[i]}));
    return;
  }
}

bool IsZero(const unsigned char* bytes, std::size_t count) {
  return std::all_of(bytes, bytes + count, [](unsigned char byte) { return byte == 0; });
}

void FillInformation(TestRun& run) {
  constexpr std::size_t kSize = 1424;
  constexpr std::size_t kGuard = 64;
  const std::string name = "Harvane";
  const std::string description =
      "EBU-compatible loudness normalizer with Program Loudness or Short-Term Loudness "
      "normalisation and True Peak limiting.";
  alignas(8) std::array<unsigned char, kSize + kGuard> buffer;
  buffer.fill(0xFF);
  auto* const information = reinterpret_cast<InstanceInformation*>(buffer.data());
  run.RequireCode(0, run.Module().xGetInstanceInformation(nullptr, information),
                  "xGetInstanceInformation");
  Bytes wanted(kSize, 0);
  std::copy_n(buffer.begin(), 16, wanted.begin());  // the identity is the module's own
  std::copy(name.begin(), name.end(), wanted.begin() + 16);
  std::copy(description.begin(), description.end(), wanted.begin() + 272);
  run.Expect(!IsZero(buffer.data(), 16), "the identity is all zero");
  ExpectBytes(run, wanted, Bytes(buffer.begin(), buffer.begin() + kSize),
              "the instance information");
  run.Expect(std::all_of(buffer.begin() + kSize, buffer.end(),
                         [](unsigned char byte) { return byte == 0xFF; }),
             "xGetInstanceInformation writes behind its 1424 bytes");
}

void KeepIdentity(TestRun& run) {
  InstanceInformation first;
  InstanceInformation second;
  ModuleInstance job(run);
  run.RequireCode(0, run.Module().xGetInstanceInformation(nullptr, &first),
                  "xGetInstanceInformation");
  run.RequireCode(0, run.Module().xGetInstanceInformation(job.Handle(), &second),
                  "xGetInstanceInformation");
  run.Expect(std::memcmp(&first, &second, sizeof first) == 0, "two calls fill in different bytes");
}

Bytes InputOffer() {
  Bytes offer(120, 0);
  const auto put = [&offer](std::size_t offset, std::uint32_t word) {
    std::memcpy(offer.data() + offset, &word, sizeof word);
  };
  put(0, HARVANE_TAG_VIDE);
  put(4, 64);
  put(8 + 28, 3);
  put(8 + 32, 0xFFFFFFFF);
  put(72, HARVANE_TAG_LPCM);
  put(76, 40);
  put(80 + 4, 48000);
  put(80 + 12, 16);
  put(80 + 16, 2);
  return offer;
}

void OfferInput(TestRun& run) {
  ModuleInstance job(run);
  InfoBuffer* record = nullptr;
  run.RequireCode(0, run.Module().xEnumInputInfo(job.Handle(), &record), "xEnumInputInfo");
  ExpectBytes(run, InputOffer(), TakeBlob(run, record, "xEnumInputInfo"), "xEnumInputInfo's blob");
  run.RequireCode(0, job.SetParameter(DocumentOf(JobTexts())), "xSetParameter");
  run.RequireCode(0, job.SetInput(FormatBlobOf(96000, 6)), "xSetInputInfo");
  run.RequireCode(0, run.Module().xEnumInputInfo(job.Handle(), &record), "xEnumInputInfo");
  ExpectBytes(run, InputOffer(), TakeBlob(run, record, "xEnumInputInfo"),
              "xEnumInputInfo's blob after a format");
}

Bytes OutputOffer(TestRun& run, const ModuleInstance& job) {
  InfoBuffer* record = nullptr;
  run.RequireCode(0, run.Module().xEnumOutputInfo(job.Handle(), &record), "xEnumOutputInfo");
  return TakeBlob(run, record, "xEnumOutputInfo");
}

void OfferOutputBeforeFormat(TestRun& run) {
  ModuleInstance job(run);
  Bytes wanted;
  AppendChunk(&wanted, HARVANE_TAG_LPCM, Bytes(40, 0), 40);
  ExpectBytes(run, wanted, OutputOffer(run, job), "xEnumOutputInfo's blob");
}

void RepeatFormat(TestRun& run) {
  Bytes payload;
  for (int i = 0; i < 40; ++i) payload.push_back(static_cast<unsigned char>(200 - 3 * i));
  Bytes blob;
  AppendChunk(&blob, HARVANE_TAG_LPCM, payload, 40);
  ModuleInstance job(run);
  run.RequireCode(0, job.SetParameter(DocumentOf(JobTexts())), "xSetParameter");
  run.RequireCode(0, job.SetInput(blob), "xSetInputInfo");
  ExpectBytes(run, blob, OutputOffer(run, job), "xEnumOutputInfo's blob");
}

void WalkChunks(TestRun& run) {
  Bytes blob;
  AppendChunk(&blob, 0x4A554E4B, Bytes(12, 0x11), 12);  // another tag
  AppendChunk(&blob, HARVANE_TAG_VIDE, VidePayloadOf(25, 1), 64);
  AppendChunk(&blob, HARVANE_TAG_LPCM, LpcmPayloadOf(44100, 1), 40);
  // Declares more than its 40 bytes; what follows lies behind the declared ones.
  Bytes longer = LpcmPayloadOf(96000, 6);
  longer.resize(44, 0x22);
  AppendChunk(&blob, HARVANE_TAG_LPCM, longer, 44);
  AppendChunk(&blob, 0x454E4420, Bytes(), 0);
  ModuleInstance job(run);
  run.RequireCode(0, job.SetParameter(DocumentOf(JobTexts())), "xSetParameter");
  run.RequireCode(0, job.SetInput(blob), "xSetInputInfo");
  ExpectBytes(run, FormatBlobOf(96000, 6), OutputOffer(run, job),
              "xEnumOutputInfo's blob: the last LPCM chunk counts, and 40 bytes of it");
}

void RefuseOtherOutput(TestRun& run) {
  ModuleInstance job(run);
  run.RequireCode(0, job.SetParameter(DocumentOf(JobTexts())), "xSetParameter");
  run.RequireCode(0, job.SetInput(FormatBlobOf(kRate, 2)), "xSetInputInfo");
  for (std::size_t byte = 8; byte < 48; ++byte) {
    Bytes blob = FormatBlobOf(kRate, 2);
    blob[byte] ^= 0x80;
    CountedInfo changed(blob);
    run.ExpectCode(3, run.Module().xSetOutputInfo(job.Handle(), changed.Record()),
                   Joined("xSetOutputInfo with byte ", byte, " changed"));
    run.ExpectEqual(0, changed.Releases(), "releases of a refused record");
  }
  // The first chunk is taken for the format, whatever its header says.
  Bytes blob = FormatBlobOf(kRate, 2);
  std::fill_n(blob.begin(), 8, static_cast<unsigned char>(0x11));
  CountedInfo strange(blob);
  run.ExpectCode(0, run.Module().xSetOutputInfo(job.Handle(), strange.Record()),
                 "xSetOutputInfo with a strange header");
  run.ExpectEqual(1, strange.Releases(), "releases of xSetOutputInfo's record");
}

void DescribeScheme(TestRun& run) {
  InfoBuffer* record = nullptr;
  run.RequireCode(0, run.Module().xGetParameterScheme(nullptr, &record), "xGetParameterScheme");
  const Bytes blob = TakeBlob(run, record, "xGetParameterScheme");
  run.Require(!blob.empty() && blob.back() == 0, "the scheme has no NUL at its end");
  const std::string text(blob.begin(), blob.end() - 1);
  run.Expect(text.find('\0') == std::string::npos, "the scheme has a NUL before its end");
  run.Expect(text.rfind("<scheme version=\"1.00\">", 0) == 0, "the scheme's root is another");
  const std::string ending = "</scheme>\n\n";
  run.Expect(text.size() > ending.size() && text.substr(text.size() - ending.size()) == ending,
             "the scheme ends otherwise");
  constexpr std::array kNames = {"numberOfPasses",
                                 "numberOfGroups",
                                 "firstGroupChannelsFormat",
                                 "secondGroupChannelsFormat",
                                 "thirdGroupChannelsFormat",
                                 "fourthGroupChannelsFormat",
                                 "normalisationMode",
                                 "Loudness",
                                 "ShortTermLoudness",
                                 "MaxTP",
                                 "logPath",
                                 "logFileName",
                                 "logEntryName",
                                 "frameRate"};
  std::size_t position = 0;
  for (const char* name : kNames) {
    const std::size_t found = text.find(Joined("name='", name, "'"), position);
    const std::size_t spaced = text.find(Joined("name ='", name, "'"), position);
    const std::size_t next = std::min(found, spaced);
    run.Require(next != std::string::npos, Joined("the scheme has no ", name, " in its place"));
    position = next;
  }
}

void HaveNoMessage(TestRun& run) {
  ModuleInstance job(run);
  for (int round = 0; round < 2; ++round) {
    InfoBuffer* record = nullptr;
    run.RequireCode(0, run.Module().xGetErrorMessage(job.Handle(), &record), "xGetErrorMessage");
    ExpectBytes(run, {0}, TakeBlob(run, record, "xGetErrorMessage"), "xGetErrorMessage's blob");
    run.ExpectCode(3, job.SetParameter("no document"), "xSetParameter of no document");
  }
}

void GivePlanarUnits(TestRun& run) {
  ModuleInstance job(run);
  JobTexts texts;
  texts.numberOfPasses = "1";
  job.Begin(texts, kRate, 3);
  job.StartPass(0);
  job.Deliver({0, 32767, -32767, 0, -32768, 0});
  PcmUnit* unit = nullptr;
  std::uint32_t flag = kJunkFlag;
  run.RequireCode(0, run.Module().xFetchPcmUnit(job.Handle(), 0, &unit, &flag), "xFetchPcmUnit");
  run.Require(unit != nullptr, "xFetchPcmUnit stored no unit");
  if (unit == nullptr) return;  // Require has thrown; a static analyser cannot tell
  run.ExpectEqual(0U, flag, "xFetchPcmUnit's out-flag");
  run.ExpectEqual(2U, unit->type, "type of the unit");
  run.Expect(IsZero(unit->reserved1, sizeof unit->reserved1) &&
                 IsZero(unit->reserved2, sizeof unit->reserved2),
             "reserved bytes of the unit are not zero");
  run.Require(unit->sampleCount == 2, Joined("sampleCount is ", unit->sampleCount, ", not 2"));
  const std::int16_t wanted[3][2] = {{0, 0}, {32767, -32767}, {-32767, 0}};
  for (std::size_t c = 0; c < kPcmUnitChannels; ++c) {
    const std::string channel = Joined("channel ", c, " of the unit");
    if (c >= 3) {
      run.Expect(unit->data[c] == nullptr && unit->stride[c] == 0, channel + " is not empty");
      continue;
    }
    run.Require(unit->data[c] != nullptr && unit->stride[c] == 1, channel + " is not planar");
    run.Expect(unit->data[c][0] == wanted[c][0] && unit->data[c][1] == wanted[c][1],
               channel + " holds other samples");
  }
  run.ExpectCode(0, unit->release(unit), "release of the unit");
  // Nothing waits now: an empty unit, with its channels.
  run.RequireCode(0, run.Module().xFetchPcmUnit(job.Handle(), 0, &unit, &flag), "xFetchPcmUnit");
  run.ExpectEqual(0U, unit->sampleCount, "sampleCount with nothing waiting");
  run.ExpectCode(0, unit->release(unit), "release of an empty unit");
  job.EndSequence();
}

void ReleaseHostRecords(TestRun& run) {
  const Samples samples(2 * 1000, 1000);
  for (const char* passes : {"1", "2", "3"}) {
    ModuleInstance job(run);  // whose calls count the releases
    JobTexts texts = TextsFor(run, "log", "job");
    texts.numberOfPasses = passes;
    job.Begin(texts, kRate, 2);
    for (std::uint32_t pass = 0; pass < 2; ++pass) {
      job.StartPass(pass);
      for (const std::uint32_t frames : {0U, 1U, 1000U}) {
        for (const Arrangement arrangement :
             {Arrangement::kInterleaved, Arrangement::kPlanar, Arrangement::kStrided}) {
          job.Deliver(samples.data(), frames, arrangement);
        }
      }
      job.EndPass();
    }
    job.EndSequence();
  }
}

void OutliveInstance(TestRun& run) {
  InfoBuffer* scheme = nullptr;
  PcmUnit* unit = nullptr;
  std::uint32_t flag = 0;
  {
    ModuleInstance job(run);
    JobTexts texts;
    texts.numberOfPasses = "1";
    job.Begin(texts, kRate, 2);
    run.RequireCode(0, run.Module().xGetParameterScheme(job.Handle(), &scheme),
                    "xGetParameterScheme");
    job.StartPass(0);
    job.Deliver({32767, 0, 0, 32767});
    run.RequireCode(0, run.Module().xFetchPcmUnit(job.Handle(), 0, &unit, &flag), "xFetchPcmUnit");
    job.EndSequence();
  }
  run.Expect(unit->sampleCount == 2 && unit->data[0][0] == 32767 && unit->data[1][1] == 32767,
             "the unit changed with the end of its instance");
  run.ExpectCode(0, unit->release(unit), "release of the unit");
  run.Expect(TakeBlob(run, scheme, "xGetParameterScheme").size() > 1, "the scheme is empty");
}

struct FlagCase {
  const char* passes;
  std::uint32_t pass;
  std::uint32_t withoutUnit;
  std::uint32_t withUnit;
};

void WriteOutFlags(TestRun& run) {
  constexpr FlagCase kCases[] = {{"2", 0, 0, 0},         {"2", 1, kJunkFlag, 1},
                                 {"2", 2, kJunkFlag, 1}, {"1", 0, kJunkFlag, 1},
                                 {"1", 1, kJunkFlag, 1}, {"3", 0, kJunkFlag, 1},
                                 {"0", 0, kJunkFlag, 1}};
  for (const FlagCase& wanted : kCases) {
    const std::string where = Joined("in pass ", wanted.pass, " of ", wanted.passes);
    ModuleInstance job(run);
    JobTexts texts = TextsFor(run, "log", "job");
    texts.numberOfPasses = wanted.passes;
    job.Begin(texts, kRate, 2);
    if (wanted.pass > 0) {
      job.StartPass(0);
      job.EndPass();
    }
    job.StartPass(wanted.pass);
    std::uint32_t flag = kJunkFlag;
    run.ExpectCode(0, run.Module().xDeliverPcmUnit(job.Handle(), 0, nullptr, &flag),
                   "xDeliverPcmUnit without a unit " + where);
    run.ExpectEqual(wanted.withoutUnit, flag, "the out-flag without a unit " + where);
    const Samples samples = {1, 2, 3, 4};
    CountedUnit unit(samples.data(), 2, 2, Arrangement::kPlanar);
    flag = kJunkFlag;
    run.ExpectCode(0, run.Module().xDeliverPcmUnit(job.Handle(), 0, unit.Record(), &flag),
                   "xDeliverPcmUnit " + where);
    run.ExpectEqual(wanted.withUnit, flag, "the out-flag with a unit " + where);
    job.EndPass();
    job.EndSequence();
  }
}

}  // namespace

void AddRecordTests(std::vector<ValidationTest>* tests) {
  const TestGroup group("Records.", kLimitSeconds, tests);
  group.Add("InstanceInformationFillsItsBuffer", FillInformation);
  group.Add("IdentityIsConstant", KeepIdentity);
  group.Add("InputOfferHasItsBytes", OfferInput);
  group.Add("OutputOfferBeforeAFormatIsZero", OfferOutputBeforeFormat);
  group.Add("OutputOfferRepeatsTheFormat", RepeatFormat);
  group.Add("ChunksAreWalkedByTheirSizes", WalkChunks);
  group.Add("OtherOutputFormatIsRefusedAndNotReleased", RefuseOtherOutput);
  group.Add("SchemeNamesAllParameters", DescribeScheme);
  group.Add("ErrorMessageIsEmpty", HaveNoMessage);
  group.Add("FetchedUnitIsPlanar", GivePlanarUnits);
  group.Add("RecordsOfTheHostAreReleasedOnce", ReleaseHostRecords);
  group.Add("RecordsOutliveTheInstance", OutliveInstance);
  group.Add("OutFlagsFollowThePass", WriteOutFlags);
}

}  // namespace harvane
