#ifndef HARVANE_TOOL_VALIDATE_VALIDATIONTEST_H
#define HARVANE_TOOL_VALIDATE_VALIDATIONTEST_H

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace harvane {

class TestRun;

// How a test's process must end.
enum class Ending {
  kReturns,
  kDies,  // inside the call that the test announces, at the module's own wish
};

// One test of a module through its exports. It runs in a process of its own.
struct ValidationTest {
  std::string name;                   // "Group.Sentence"; unique
  int level;                          // 1 seconds, 2 a minute, 3 minutes: all tests up to it
  int limitSeconds;                   // after which its process is ended
  std::function<void(TestRun&)> run;  // throws TestEnded where going on makes no sense
  Ending ending = Ending::kReturns;
};

// All tests, in the order in which they run. The first ones are about loading: without them the
// others mean nothing. What they expect is stated here by hand, never asked of a module.
const std::vector<ValidationTest>& ValidationTests();

// The group whose failure makes all others meaningless.
inline constexpr const char* kLoadingGroup = "Loading.";

// Appends the tests of one group.
class TestGroup {
 public:
  // `name` with its point stands before the names of the tests. The limit and the ending are
  // theirs.
  TestGroup(std::string name, int limitSeconds, std::vector<ValidationTest>* tests,
            Ending ending = Ending::kReturns)
      : name(std::move(name)), limitSeconds(limitSeconds), tests(tests), ending(ending) {}

  void Add(const std::string& sentence, std::function<void(TestRun&)> run, int level = 1) const {
    tests->push_back({name + sentence, level, limitSeconds, std::move(run), ending});
  }

 private:
  std::string name;
  int limitSeconds;
  std::vector<ValidationTest>* tests;
  Ending ending;
};

// The tests of a topic, appended.
void AddLoadingTests(std::vector<ValidationTest>* tests);
void AddRecordTests(std::vector<ValidationTest>* tests);
void AddParameterTests(std::vector<ValidationTest>* tests);
void AddSampleTests(std::vector<ValidationTest>* tests);
void AddMeasuringTests(std::vector<ValidationTest>* tests);
void AddTwoPassTests(std::vector<ValidationTest>* tests);
void AddLogTests(std::vector<ValidationTest>* tests);
void AddDeathTests(std::vector<ValidationTest>* tests);
void AddEnduranceTests(std::vector<ValidationTest>* tests);

}  // namespace harvane

#endif  // HARVANE_TOOL_VALIDATE_VALIDATIONTEST_H
