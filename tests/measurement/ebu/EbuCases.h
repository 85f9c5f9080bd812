#ifndef HARVANE_TESTS_MEASUREMENT_EBU_EBUCASES_H
#define HARVANE_TESTS_MEASUREMENT_EBU_EBUCASES_H

#include <functional>
#include <string>
#include <vector>

#include "tests/measurement/ebu/Readings.h"

// The test cases that can be made from their descriptions.
//
// Source     EBU Tech 3341 (January 2016), table 1, cases 1 to 6 and 9 to 23; EBU Tech 3342
//            (January 2016), table 1, cases 1 to 4. The others are authentic programmes.
// Units      levels: LUFS. Range: LU. Peak: dBTP.
namespace ebu {

// One value that a meter shows, beside the published one.
struct CaseReading {
  std::string what;
  double published;
  float value;
};

struct EbuCase {
  std::string name;       // document and number: "3341-1"
  std::string signal;     // in words
  std::string published;  // in words
  double below;           // how far under the published value is within its tolerance
  double above;           // the same over it
  bool isMissed;          // by the module, deliberately

  // What `meter` shows. A case of twenty tones takes the first `tones` of them, 1 to 20.
  std::function<std::vector<CaseReading>(const Meter& meter, int tones)> read;
};

inline constexpr int kAllTones = 20;
// The tones begin at five places against the module's windows, over and over.
inline constexpr int kPlaces = 5;

// In the order of the documents.
const std::vector<EbuCase>& EbuCases();

// A case of the list; throws std::out_of_range for an unknown name.
const EbuCase& EbuCaseOf(const std::string& name);

bool IsWithin(const EbuCase& ebuCase, const CaseReading& reading);

}  // namespace ebu

#endif  // HARVANE_TESTS_MEASUREMENT_EBU_EBUCASES_H
