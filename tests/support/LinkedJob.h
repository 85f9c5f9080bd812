#ifndef HARVANE_TESTS_SUPPORT_LINKEDJOB_H
#define HARVANE_TESTS_SUPPORT_LINKEDJOB_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "delay_audio/DelayAudio.h"
#include "delay_audio/PassObserver.h"
#include "host/HostSession.h"
#include "tests/support/DelayAudioProbe.h"
#include "tests/support/ParameterDocuments.h"
#include "tests/support/TemporaryFolder.h"

namespace support {

// One instance of the linked module with a sequence under way, its log in a
// temporary folder from the end of the first pass on. All rows are written
// before the folder goes.
//
// Libraries  linked_module, host_session.
// Thread     one caller at a time.
class LinkedJob {
 public:
  // `texts` but for the log's folder and file name.
  LinkedJob(ParameterTexts texts, std::uint32_t sampleRate, std::uint32_t channels)
      : session(harvane::LinkedModuleExports()) {
    texts.logFileName = "rows";
    session.Configure(ParameterDocument(texts), {sampleRate, channels, {}});
    session.StartSequence();
  }
  ~LinkedJob() {
    session.EndSequence();
    if (folder) harvane::WriteWaitingLogRows();
  }
  LinkedJob(const LinkedJob&) = delete;
  LinkedJob& operator=(const LinkedJob&) = delete;

  harvane::HostSession& Session() { return session; }
  harvane::DelayAudio& Instance() { return *static_cast<harvane::DelayAudio*>(session.Handle()); }

  // One pass over interleaved samples, in units of `unitFrames`; gives what came back.
  std::vector<std::int16_t> RunPass(std::uint32_t pass, const std::vector<std::int16_t>& input,
                                    std::uint32_t channels, std::uint32_t unitFrames) {
    std::vector<std::int16_t> output;
    const auto frames = static_cast<std::uint32_t>(input.size() / channels);
    session.StartPass(pass);
    for (std::uint32_t first = 0; first < frames; first += unitFrames) {
      const std::uint32_t count = frames - first < unitFrames ? frames - first : unitFrames;
      session.Deliver(input.data() + static_cast<std::size_t>(first) * channels, count, &output);
    }
    EndPass();
    return output;
  }
  // In place of the session's, whose rows would go to the default folder.
  void EndPass() {
    if (!folder) {
      folder.emplace();
      harvane::DelayAudioProbe::LogPath(Instance()) = folder->Text();
    }
    session.EndPass();
  }

  // A pass without any audio.
  void RunEmptyPass(std::uint32_t pass) {
    session.StartPass(pass);
    EndPass();
  }

  // The log file after all rows that wait.
  std::string LogBytes() const {
    if (!folder) return {};
    harvane::WriteWaitingLogRows();
    return ReadBytes(folder->FileIn("rows.csv"));
  }

 private:
  std::optional<TemporaryFolder> folder;
  harvane::HostSession session;
};

}  // namespace support

#endif  // HARVANE_TESTS_SUPPORT_LINKEDJOB_H
