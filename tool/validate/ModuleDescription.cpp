#include "tool/validate/ModuleDescription.h"

#include <cstring>
#include <fstream>
#include <iterator>

#include "host/FileAccess.h"
#include "host/HostSession.h"

namespace harvane {
namespace {

// The only names that the folder holds; a slash serves on every platform.
constexpr const char* kInformationFile = "/information";
constexpr const char* kSchemeFile = "/scheme";
constexpr const char* kInputOfferFile = "/input-offer";

std::string TakeBytes(const char* maker, std::uint32_t code, InfoBuffer* record) {
  if (code != 0) throw ModuleRefusal(maker, code);
  if (record == nullptr || record->release == nullptr) {
    throw ModuleError(std::string(maker) + " made no record");
  }
  std::string bytes;
  if (record->data != nullptr) bytes.assign(static_cast<const char*>(record->data), record->size);
  record->release(record);
  return bytes;
}

void Save(const std::string& path, const char* bytes, std::size_t size) {
  std::ofstream file(PathOf(path), std::ios::binary);
  if (!file.write(bytes, static_cast<std::streamsize>(size)).flush()) {
    throw ModuleError(path + ": cannot be written");
  }
}

std::string Load(const std::string& path) {
  std::ifstream file(PathOf(path), std::ios::binary);
  if (!file) throw ModuleError(path + ": cannot be read");
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace

ModuleDescription DescriptionOf(const ModuleExports& exports) {
  ModuleDescription description{};
  const std::uint32_t code = exports.xGetInstanceInformation(nullptr, &description.information);
  if (code != 0) throw ModuleRefusal("xGetInstanceInformation", code);
  InfoBuffer* record = nullptr;
  const std::uint32_t schemeCode = exports.xGetParameterScheme(nullptr, &record);
  description.scheme = TakeBytes("xGetParameterScheme", schemeCode, record);
  if (!description.scheme.empty() && description.scheme.back() == '\0') {
    description.scheme.pop_back();
  }
  record = nullptr;
  const std::uint32_t offerCode = exports.xEnumInputInfo(nullptr, &record);
  const std::string offer = TakeBytes("xEnumInputInfo", offerCode, record);
  description.inputOffer.assign(offer.begin(), offer.end());
  return description;
}

void SaveDescription(const ModuleDescription& description, const std::string& folder) {
  const std::string offer(description.inputOffer.begin(), description.inputOffer.end());
  char information[sizeof description.information];
  std::memcpy(information, &description.information, sizeof information);
  Save(folder + kInformationFile, information, sizeof information);
  Save(folder + kSchemeFile, description.scheme.data(), description.scheme.size());
  Save(folder + kInputOfferFile, offer.data(), offer.size());
}

ModuleDescription LoadDescription(const std::string& folder) {
  ModuleDescription description{};
  const std::string information = Load(folder + kInformationFile);
  if (information.size() != sizeof description.information) {
    throw ModuleError(folder + kInformationFile + ": has another size");
  }
  std::memcpy(&description.information, information.data(), information.size());
  description.scheme = Load(folder + kSchemeFile);
  const std::string offer = Load(folder + kInputOfferFile);
  description.inputOffer.assign(offer.begin(), offer.end());
  return description;
}

}  // namespace harvane
