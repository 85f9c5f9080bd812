#ifndef HARVANE_TESTS_SUPPORT_ORDINARYUSER_H
#define HARVANE_TESTS_SUPPORT_ORDINARYUSER_H

#include <unistd.h>

namespace support {

// Nobody's rights in place of root's, which no folder refuses.
class OrdinaryUser {
 public:
  OrdinaryUser() : isRoot(geteuid() == 0) {
    if (isRoot) isOrdinary = seteuid(65534) == 0;
  }
  ~OrdinaryUser() {
    if (isRoot && isOrdinary) static_cast<void>(!seteuid(0));
  }
  bool IsOrdinary() const { return isOrdinary; }

 private:
  bool isRoot;
  bool isOrdinary = true;
};

}  // namespace support

#endif  // HARVANE_TESTS_SUPPORT_ORDINARYUSER_H
