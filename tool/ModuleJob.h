#ifndef HARVANE_TOOL_MODULEJOB_H
#define HARVANE_TOOL_MODULEJOB_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/JobSession.h"
#include "host/ParameterDocument.h"
#include "host/PassRecorder.h"
#include "tool/TrackLayout.h"

namespace harvane {

// One sequence of a module over some or all channels of a file: it takes the file's frames and
// gives back the frames of its own channels. Several may go over one file side by side.
//
// Values     of the linked module: its own, of which those of the second pass begin with what the
//            filters remember of the first. A module file tells none: what goes in in the first
//            pass is then measured by the linked module, and of the second pass there are none.
// Samples    signed 16-bit, interleaved.
// Errors     ModuleRefusal, ModuleError, ModuleDeath, std::bad_alloc.
// Thread     one caller at a time.
class ModuleJob {
 public:
  // `module`: a module file; empty for the linked one. `document` is handed over as it stands.
  ModuleJob(const std::string& module, JobLayout layout, int sampleRate,
            const std::string& document);
  ModuleJob(const ModuleJob&) = delete;
  ModuleJob& operator=(const ModuleJob&) = delete;

  const JobLayout& Layout() const { return layout; }

  void StartPass(std::uint32_t number);
  // Frames of the file, `width` samples each. What came back is in Output.
  void Deliver(const std::int16_t* file, std::size_t frames, std::size_t width);
  // The module's frames of the latest Deliver, ModuleChannels samples each.
  const std::vector<std::int16_t>& Output() const { return output; }
  // The same, to be taken: the next Deliver needs nothing of it.
  std::vector<std::int16_t>* OutputToTake() { return &output; }
  std::size_t OutputFrames() const { return output.size() / ModuleChannels(); }
  std::size_t ModuleChannels() const { return static_cast<std::size_t>(layout.moduleChannels); }
  // True if the file's frames, of `width` samples, are the module's.
  bool IsIdentity(std::size_t width) const;
  // What the pass measured, one per track, or nothing.
  std::vector<LogMeasurement> EndPass();
  void EndSequence();

 private:
  JobLayout layout;
  SessionFormat format;
  bool isModuleFile;
  PassRecorder recorder;
  std::optional<Witness> witness;
  JobSession session;
  std::vector<std::int16_t> row;
  std::vector<std::int16_t> output;
};

}  // namespace harvane

#endif  // HARVANE_TOOL_MODULEJOB_H
