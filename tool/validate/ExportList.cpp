#include "tool/validate/ExportList.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>
#include <string_view>

#include "host/FileAccess.h"
#include "host/ModuleExports.h"

namespace harvane {
namespace {

constexpr std::uint64_t kMostBytes = std::uint64_t{1} << 30;
constexpr std::uint64_t kMostEntries = 1'000'000;
constexpr std::size_t kMostName = 4096;

// The bytes of a file. Whatever is asked for must lie in it.
class FileBytes {
 public:
  explicit FileBytes(const std::string& path) : path(path) {
    std::ifstream file(PathOf(path), std::ios::binary);
    file.seekg(0, std::ios::end);
    const std::streamoff size = file.tellg();
    if (!file || size < 0 || static_cast<std::uint64_t>(size) > kMostBytes) Refuse("not readable");
    bytes.resize(static_cast<std::size_t>(size));
    file.seekg(0);
    if (!file.read(bytes.data(), static_cast<std::streamsize>(size))) Refuse("not readable");
  }

  // A number of `size` bytes.
  std::uint64_t Number(std::uint64_t at, unsigned size) const {
    Check(at, size);
    std::uint64_t number = 0;
    for (unsigned i = size; i-- > 0;) {
      number = number << 8U | static_cast<unsigned char>(bytes[static_cast<std::size_t>(at) + i]);
    }
    return number;
  }
  std::uint64_t Byte(std::uint64_t at) const { return Number(at, 1); }
  std::uint64_t Half(std::uint64_t at) const { return Number(at, 2); }
  std::uint64_t Word(std::uint64_t at) const { return Number(at, 4); }

  bool HasAt(std::uint64_t at, std::string_view text) const {
    return at <= bytes.size() && text.size() <= bytes.size() - at &&
           std::memcmp(bytes.data() + at, text.data(), text.size()) == 0;
  }

  // Up to its NUL.
  std::string Text(std::uint64_t at) const {
    std::string text;
    while (const std::uint64_t byte = Byte(at++)) {
      if (text.size() == kMostName) Refuse("an export's name has no end");
      text += static_cast<char>(byte);
    }
    return text;
  }

  [[noreturn]] void Refuse(const char* reason) const {
    throw ModuleError(path + ": its exports cannot be read: " + reason);
  }

 private:
  void Check(std::uint64_t at, std::uint64_t size) const {
    if (at > bytes.size() || size > bytes.size() - at) Refuse("a table lies outside the file");
  }

  const std::string& path;
  std::vector<char> bytes;
};

// ---- Windows

constexpr std::uint64_t kHeaderOffsetAt = 0x3C;

// Where in the file an address of the loaded module comes from.
class PeSections {
 public:
  PeSections(const FileBytes& file, std::uint64_t table, std::uint64_t count)
      : file(file), table(table), count(count) {}

  std::uint64_t PlaceOf(std::uint64_t address) const {
    for (std::uint64_t i = 0; i < count; ++i) {
      const std::uint64_t section = table + 40 * i;
      const std::uint64_t start = file.Word(section + 12);
      if (address < start || address - start >= file.Word(section + 16)) continue;
      return file.Word(section + 20) + (address - start);
    }
    file.Refuse("an address lies in no section");
  }

 private:
  const FileBytes& file;
  std::uint64_t table;
  std::uint64_t count;
};

std::vector<std::string> PeNames(const FileBytes& file, std::uint64_t header) {
  constexpr std::uint64_t kPe32 = 0x10B;
  constexpr std::uint64_t kPe32Plus = 0x20B;
  const std::uint64_t optional = header + 24;
  const std::uint64_t kind = file.Half(optional);
  if (kind != kPe32 && kind != kPe32Plus) file.Refuse("an unknown kind of Windows module");
  const std::uint64_t directories = optional + (kind == kPe32 ? 92 : 108);
  if (file.Word(directories) == 0 || file.Word(directories + 4) == 0) return {};
  const PeSections sections(file, optional + file.Half(header + 20), file.Half(header + 6));

  const std::uint64_t exports = sections.PlaceOf(file.Word(directories + 4));
  const std::uint64_t firstOrdinal = file.Word(exports + 16);
  const std::uint64_t functions = file.Word(exports + 20);
  const std::uint64_t names = file.Word(exports + 24);
  if (functions > kMostEntries || names > kMostEntries) file.Refuse("too many");
  std::vector<bool> isNamed(static_cast<std::size_t>(functions));
  std::vector<std::string> all;
  for (std::uint64_t i = 0; i < names; ++i) {
    const std::uint64_t name = sections.PlaceOf(file.Word(exports + 32) + 4 * i);
    all.push_back(file.Text(sections.PlaceOf(file.Word(name))));
    const std::uint64_t index = file.Half(sections.PlaceOf(file.Word(exports + 36) + 2 * i));
    if (index < functions) isNamed[static_cast<std::size_t>(index)] = true;
  }
  for (std::uint64_t i = 0; i < functions; ++i) {
    if (isNamed[static_cast<std::size_t>(i)]) continue;
    // A gap between two ordinals leads nowhere.
    if (file.Word(sections.PlaceOf(file.Word(exports + 28) + 4 * i)) == 0) continue;
    all.push_back("ordinal " + std::to_string(firstOrdinal + i));
  }
  return all;
}

// ---- ELF

// Where the fields lie, in files of 32 and of 64 bits.
struct ElfShape {
  unsigned wordSize;
  std::uint64_t sectionTable;  // in the header
  std::uint64_t sectionSize;   // in the header; the number of sections follows
  std::uint64_t offset;        // in a section
  std::uint64_t size;
  std::uint64_t link;
  std::uint64_t symbolSize;
  std::uint64_t info;  // in a symbol
  std::uint64_t other;
  std::uint64_t section;
};

constexpr ElfShape kElf32 = {4, 32, 46, 16, 20, 24, 16, 12, 13, 14};
constexpr ElfShape kElf64 = {8, 40, 58, 24, 32, 40, 24, 4, 5, 6};

// One that other files may use.
bool IsShown(const FileBytes& file, const ElfShape& shape, std::uint64_t symbol) {
  constexpr std::uint64_t kUndefined = 0;
  constexpr std::uint64_t kLocal = 0;
  constexpr std::uint64_t kSectionType = 3;
  constexpr std::uint64_t kFileType = 4;
  constexpr std::uint64_t kDefaultVisibility = 0;
  constexpr std::uint64_t kProtectedVisibility = 3;
  const std::uint64_t info = file.Byte(symbol + shape.info);
  const std::uint64_t visibility = file.Byte(symbol + shape.other) & 3U;
  const std::uint64_t type = info & 0xFU;
  return file.Half(symbol + shape.section) != kUndefined && info >> 4U != kLocal &&
         type != kSectionType && type != kFileType &&
         (visibility == kDefaultVisibility || visibility == kProtectedVisibility);
}

std::vector<std::string> ElfNames(const FileBytes& file) {
  constexpr std::uint64_t kDynamicSymbols = 11;
  constexpr std::uint64_t kClassAt = 4;
  constexpr std::uint64_t kByteOrderAt = 5;
  if (file.Byte(kByteOrderAt) != 1) file.Refuse("another byte order");
  const ElfShape& shape = file.Byte(kClassAt) == 2 ? kElf64 : kElf32;
  const std::uint64_t table = file.Number(shape.sectionTable, shape.wordSize);
  const std::uint64_t sectionSize = file.Half(shape.sectionSize);
  const std::uint64_t count = file.Half(shape.sectionSize + 2);
  for (std::uint64_t i = 0; i < count; ++i) {
    const std::uint64_t section = table + i * sectionSize;
    if (file.Word(section + 4) != kDynamicSymbols) continue;
    const std::uint64_t strings = table + file.Word(section + shape.link) * sectionSize;
    const std::uint64_t texts = file.Number(strings + shape.offset, shape.wordSize);
    const std::uint64_t first = file.Number(section + shape.offset, shape.wordSize);
    const std::uint64_t symbols =
        file.Number(section + shape.size, shape.wordSize) / shape.symbolSize;
    if (symbols > kMostEntries) file.Refuse("too many");
    std::vector<std::string> all;
    for (std::uint64_t s = 0; s < symbols; ++s) {
      const std::uint64_t symbol = first + s * shape.symbolSize;
      if (IsShown(file, shape, symbol)) all.push_back(file.Text(texts + file.Word(symbol)));
    }
    return all;
  }
  file.Refuse("it has no table of dynamic symbols");
}

}  // namespace

std::vector<std::string> ExportedNames(const std::string& path) {
  const FileBytes file(path);
  if (file.HasAt(0,
                 "\x7F"
                 "ELF"))
    return ElfNames(file);
  if (file.HasAt(0, "MZ")) {
    const std::uint64_t header = file.Word(kHeaderOffsetAt);
    if (file.HasAt(header, std::string_view("PE\0\0", 4))) return PeNames(file, header);
  }
  file.Refuse("neither a Windows module nor an ELF file");
}

}  // namespace harvane
