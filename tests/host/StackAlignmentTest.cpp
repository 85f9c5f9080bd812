// Hosts whose stack is aligned to 4 bytes only: every export and both release functions are
// entered at each of the four residues. Only the 32-bit calling convention allows that.

#include "tests/host/JobRunner.h"
#include "tests/host/ModuleUnderTest.h"
#include "tests/support/Signals.h"

namespace hosttest {
namespace {

constexpr unsigned kResidues[] = {0, 4, 8, 12};

// Calls a function of up to four words with its first argument at an address of the form
// 16 * n + residue. What was pushed too much does no harm: the caller clears the stack.
__attribute__((noinline)) std::uint32_t CallAt(unsigned residue, std::uintptr_t function,
                                               const std::uintptr_t (&words)[4]) {
  std::uint32_t result = 0;
  const std::uintptr_t* const arguments = words;
  asm volatile(
      "movl %%esp, %%esi\n\t"
      "andl $-16, %%esp\n\t"
      "subl $16, %%esp\n\t"
      "addl %[residue], %%esp\n\t"
      "pushl 12(%[arguments])\n\t"
      "pushl 8(%[arguments])\n\t"
      "pushl 4(%[arguments])\n\t"
      "pushl (%[arguments])\n\t"
      "call *%[function]\n\t"
      "movl %%esi, %%esp\n\t"
      : "=a"(result)
      : [residue] "c"(residue), [arguments] "D"(arguments), [function] "a"(function)
      : "esi", "edx", "memory", "cc", "xmm0", "xmm1", "xmm2", "xmm3", "xmm4", "xmm5", "xmm6",
        "xmm7");
  return result;
}

template <class T>
std::uintptr_t Word(T* pointer) {
  return reinterpret_cast<std::uintptr_t>(pointer);
}
std::uintptr_t Word(std::uint32_t number) { return number; }

// A table of exports that are entered at the present residue.
class MisalignedExports {
 public:
  static harvane::ModuleExports Table(const harvane::ModuleExports& real, unsigned residue) {
    Real() = real;
    Residue() = residue;
    return {Entry<&harvane::ModuleExports::xOpen>::Call,
            Entry<&harvane::ModuleExports::xClose>::Call,
            Entry<&harvane::ModuleExports::xGetInstanceInformation>::Call,
            Entry<&harvane::ModuleExports::xGetParameterScheme>::Call,
            Entry<&harvane::ModuleExports::xGetErrorMessage>::Call,
            Entry<&harvane::ModuleExports::xSetParameter>::Call,
            Entry<&harvane::ModuleExports::xEnumInputInfo>::Call,
            Entry<&harvane::ModuleExports::xSetInputInfo>::Call,
            Entry<&harvane::ModuleExports::xEnumOutputInfo>::Call,
            Entry<&harvane::ModuleExports::xSetOutputInfo>::Call,
            Entry<&harvane::ModuleExports::xStartSequenceEx>::Call,
            Entry<&harvane::ModuleExports::xStartPassEx>::Call,
            Entry<&harvane::ModuleExports::xDeliverPcmUnit>::Call,
            Entry<&harvane::ModuleExports::xFetchPcmUnit>::Call,
            Entry<&harvane::ModuleExports::xEndPass>::Call,
            Entry<&harvane::ModuleExports::xEndSequence>::Call};
  }

 private:
  static harvane::ModuleExports& Real() {
    static harvane::ModuleExports real{};
    return real;
  }
  static unsigned& Residue() {
    static unsigned residue = 0;
    return residue;
  }

  template <auto kMember>
  struct Entry;
  template <class... Arguments,
            std::uint32_t (HARVANE_CALL* harvane::ModuleExports::*kMember)(Arguments...)>
  struct Entry<kMember> {
    static std::uint32_t HARVANE_CALL Call(Arguments... arguments) {
      const std::uintptr_t words[4] = {Word(arguments)...};
      return CallAt(Residue(), Word(Real().*kMember), words);
    }
  };
};

template <class Record>
std::uint32_t ReleaseAt(unsigned residue, Record* record) {
  const std::uintptr_t words[4] = {Word(record), 0, 0, 0};
  return CallAt(residue, Word(record->release), words);
}

class StackAlignment : public ModuleTest, public testing::WithParamInterface<unsigned> {
 protected:
  harvane::ModuleExports Misaligned() const {
    return MisalignedExports::Table(Module(), GetParam());
  }
};

std::uintptr_t argumentAddress = 0;
std::uint32_t HARVANE_CALL NoteAddress(std::uintptr_t first) {
  argumentAddress = reinterpret_cast<std::uintptr_t>(&first);
  return static_cast<std::uint32_t>(first);
}

TEST_P(StackAlignment, TrampolineEntersAtItsResidue) {
  const std::uintptr_t words[4] = {42, 0, 0, 0};
  EXPECT_EQ(CallAt(GetParam(), Word(NoteAddress), words), 42U);
  EXPECT_EQ(argumentAddress % 16, GetParam());
}

TEST_P(StackAlignment, WholeJobGivesTheTwinsSamples) {
  twin::JobSpec spec;
  spec.loudness = -10.0F;
  spec.maxTp = -3.0F;
  const auto signal = support::Programme(50, spec.sampleRate, spec.channels, 36000);
  const harvane::ModuleExports exports = Misaligned();
  JobRunner job(exports, spec, LogFolder(), "log");
  job.StartSequence();
  job.RunPass(0, signal, Delivery());
  const std::vector<std::int16_t> output = job.RunPass(1, signal, Delivery());
  job.EndSequence();
  EXPECT_EQ(Difference(twin::RunJob(spec, signal).output, output), "");
}

TEST_P(StackAlignment, RecordsComeAndGo) {
  const harvane::ModuleExports exports = Misaligned();
  Instance job(exports);
  InfoBuffer* info = nullptr;
  for (const auto call : {exports.xGetParameterScheme, exports.xEnumInputInfo,
                          exports.xEnumOutputInfo, exports.xGetErrorMessage}) {
    ASSERT_EQ(call(job.Handle(), &info), 0U);
    EXPECT_EQ(ReleaseAt(GetParam(), info), 0U);
  }
  InstanceInformation information;
  EXPECT_EQ(exports.xGetInstanceInformation(job.Handle(), &information), 0U);
  EXPECT_STREQ(information.name, "Harvane");
  job.Begin(Texts(), 48000, 2);
  PcmUnit* unit = nullptr;
  std::uint32_t flag = 1;
  ASSERT_EQ(exports.xFetchPcmUnit(job.Handle(), 0, &unit, &flag), 0U);
  EXPECT_EQ(ReleaseAt(GetParam(), unit), 0U);
  EXPECT_EQ(job.EndSequence(), 0U);
}

TEST_P(StackAlignment, FailuresBecomeCodes) {
  const harvane::ModuleExports exports = Misaligned();
  Instance job(exports);
  EXPECT_EQ(exports.xSetParameter(job.Handle(), "not xml"), 3U);
  EXPECT_EQ(exports.xSetParameter(job.Handle(), "<parameter/>"), 4U);
  EXPECT_EQ(exports.xStartSequenceEx(job.Handle(), nullptr), 3U);
  support::CountedInfo changed(support::FormatBlob(1, 1));
  EXPECT_EQ(exports.xSetOutputInfo(job.Handle(), changed.Record()), 3U);
  EXPECT_EQ(changed.Releases(), 0);
}

INSTANTIATE_TEST_SUITE_P(Exports, StackAlignment, testing::ValuesIn(kResidues),
                         [](const auto& info) { return "Residue" + std::to_string(info.param); });

}  // namespace
}  // namespace hosttest
