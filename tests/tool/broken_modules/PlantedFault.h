#ifndef HARVANE_TESTS_TOOL_BROKEN_MODULES_PLANTEDFAULT_H
#define HARVANE_TESTS_TOOL_BROKEN_MODULES_PLANTEDFAULT_H

/* What can be wrong with a module of this folder. As C and as C++. */
enum Fault {
  kNone,
  kAcceptsAnyOutputFormat,
  kChannelsSwapped,
  kCrashesAtTheSecondInstance,
  kDelayTakenOut,
  kErrorMessageSpeaks,
  kExportMissing,
  kFrameLost,
  kFrameRateForgotten,
  kGainOffByATenth,
  kGoesOnWithoutChannels,
  kHangsAtTheEndOfAPass,
  kInformationTooLong,
  kLeaksAMegabyteAJob,
  kLogRowsBroken,
  kLogRowsWrittenAtOnce,
  kMeasuresTooLoud,
  kOfferOfAnotherRate,
  kOneHandleForAll,
  kOutFlagInTheFirstPass,
  kPeakOverTheCeiling,
  kRoundsToNearest,
  kSchemeWithoutItsNul,
  kSeventeenthExport,
  kStrayWriteAtAFifthGroup,
  kStridesTakenForBytes,
  kUnitReleasedTwice,
  kWrongCodeForMissingValue,
};

#ifdef __cplusplus
extern "C" {
#endif

/* What is wrong with this one. */
extern const enum Fault kPlantedFault;

#ifdef __cplusplus
}
#endif

#endif /* HARVANE_TESTS_TOOL_BROKEN_MODULES_PLANTEDFAULT_H */
