#include "host/FileAccess.h"

#include <system_error>
#include <utility>

namespace harvane {

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  std::swap(number, other.number);
  return *this;
}

std::string SystemText(int error) { return std::generic_category().message(error); }

}  // namespace harvane
