#ifndef HARVANE_PLATFORM_CHECKEDLIST_H
#define HARVANE_PLATFORM_CHECKEDLIST_H

#include <cstddef>
#include <utility>
#include <vector>

#include "platform/FatalStop.h"

namespace harvane {

// A list whose entries are read by a checked index, in every build. An index
// out of range ends the process (FatalStop); it is never an exception, which
// the exports' guard would turn into a result code.
//
// Copying    copies the entries. Entries that are pointers are not owned.
// Errors     what lets the list grow throws std::bad_alloc.
// Thread     as std::vector.
template <class T>
class CheckedList {
 public:
  CheckedList() = default;
  CheckedList(std::initializer_list<T> entries) : entries(entries) {}

  void Append(T value) { entries.push_back(std::move(value)); }
  void Reserve(std::size_t count) { entries.reserve(count); }
  // Keeps the memory.
  void Clear() { entries.clear(); }

  std::size_t Size() const { return entries.size(); }
  bool IsEmpty() const { return entries.empty(); }

  // A negative index wraps to a huge one and is out of range as well.
  T& operator[](std::size_t index) {
    Check(index);
    return entries[index];
  }
  const T& operator[](std::size_t index) const {
    Check(index);
    return entries[index];
  }

  auto begin() { return entries.begin(); }
  auto end() { return entries.end(); }
  auto begin() const { return entries.begin(); }
  auto end() const { return entries.end(); }
  const T* Data() const { return entries.data(); }

  // Lets the next Extend by `count` do without an allocation. The list grows as
  // by Extend, but its entries stay as they are, also where memory is exhausted.
  void MakeRoom(std::size_t count) {
    if (entries.capacity() - entries.size() >= count) return;
    entries.resize(entries.size() + count);
    entries.resize(entries.size() - count);
  }
  // Adds `count` entries of value T() and gives the address of the first; valid
  // until the list changes.
  T* Extend(std::size_t count) {
    entries.resize(entries.size() + count);
    return entries.data() + (entries.size() - count);
  }

 private:
  void Check(std::size_t index) const {
    if (index >= entries.size()) FatalStop("list index out of range");
  }

  std::vector<T> entries;
};

// The same for flags, packed eight to a byte.
class CheckedFlags {
 public:
  void Append(bool value) { flags.push_back(value); }
  void Clear() { flags.clear(); }
  std::size_t Size() const { return flags.size(); }
  bool operator[](std::size_t index) const {
    if (index >= flags.size()) FatalStop("list index out of range");
    return flags[index];
  }

 private:
  std::vector<bool> flags;
};

}  // namespace harvane

#endif  // HARVANE_PLATFORM_CHECKEDLIST_H
