/// @file
/// Files that lie: a sound one with one field at a time set to a bad value, and shapes that no
/// single field makes.
#ifndef AOSTORAGE_TESTS_SUPPORT_HOSTILE_FILES_H_
#define AOSTORAGE_TESTS_SUPPORT_HOSTILE_FILES_H_

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "support/raw_file.h"

namespace aostorage::testing {

/// A stored word or byte, by name: "target.block1.used".
struct Field {
  std::string name;
  std::size_t offset, width;

  std::uint32_t In(const Bytes& bytes) const;
  void Set(Bytes& bytes, std::uint32_t value) const;
};

/// A sound file with one of each record. "sound" stands in a reserved slot; of "target" and its
/// three blocks, the folders "folder" and "folder/sub" and their children, two vacated slots and
/// two directory blocks each field is known. The first block has no free slot but the vacated one.
struct ReferenceFile {
  ReferenceFile();
  /// Borders of every kind of word, and the offset of every record in the file.
  std::set<std::uint32_t> BadValues(const Field& field) const;

  FileBuilder builder;
  std::vector<Field> fields;
  std::vector<std::uint32_t> records;  ///< where each of them begins
  std::uint32_t soundBlock = 0;

 private:
  void AddFields(const std::string& owner, std::size_t offset,
                 const std::vector<std::pair<const char*, std::size_t>>& names);
  void AddBlocks(const std::string& owner, std::uint32_t first);
  void AddRecord(const std::string& owner, std::size_t offset);
};

struct HostileFile {
  std::string name;
  std::function<Bytes()> make;
  bool sound = false;            ///< breaks no rule: nothing may refuse it
  std::uint64_t moreMemory = 0;  ///< that operations on it may take
};

/// Shapes that take more than one field.
std::vector<HostileFile> HostileShapes();

}  // namespace aostorage::testing

#endif  // AOSTORAGE_TESTS_SUPPORT_HOSTILE_FILES_H_
