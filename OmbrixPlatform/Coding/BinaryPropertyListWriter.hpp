#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixPlatform/Coding/PropertyListSerialization.hpp"
#include "OmbrixPlatform/Values/Data.hpp"
#include "OmbrixPlatform/Values/Date.hpp"

namespace ombrix::platform {

/// Writes a binary property list value by value, without a tree of values.
///
/// Call one `value` or `begin…` for the top, then within a dictionary `key` before each value.
/// Equal scalars are stored once. The caller keeps calls balanced and keys distinct. Throws
/// `PropertyListError` for text that is not UTF-8 and for containers nested too deep. One thread.
class BinaryPropertyListWriter {
 public:
  BinaryPropertyListWriter();

  void beginDictionary() { begin(true); }
  void beginArray() { begin(false); }
  void end();
  void key(std::string_view name);

  void value(bool value);
  void value(std::int64_t value);
  void value(std::uint64_t value);
  void value(double value);
  void value(Date value);
  void value(PropertyList::UID value);
  void value(std::string_view text);
  void value(DataView bytes);

  /// The finished file. The writer is empty afterwards.
  Data finish();

 private:
  struct Slot {
    std::uint64_t hash;
    std::uint64_t offset;
    std::uint32_t length;
    std::uint32_t id;
  };
  struct Container {
    std::uint32_t id;
    bool isDictionary;
    std::size_t firstReference;  // in pending_ while open, in references_ once ended
    std::size_t references;
  };
  struct KnownKey {
    const char* name = nullptr;
    std::size_t length = 0;
    std::uint32_t id = 0;
  };

  void begin(bool isDictionary);
  std::uint32_t newId(std::uint64_t offset);
  std::uint32_t textId(std::string_view text);
  std::uint32_t uniqueTail(std::size_t start);
  void growTable();
  void byte(unsigned value) { leaves_.push_back(static_cast<char>(value)); }
  void bigEndian(std::uint64_t value, unsigned size);
  void header(unsigned marker, std::uint64_t count);
  void emitContainer(Data& out, const Container& container, unsigned referenceSize) const;

  std::string leaves_;                     // the scalars as they will stand in the file
  std::vector<std::uint64_t> offsets_;     // by id, from the start of leaves_
  std::vector<std::uint32_t> pending_;     // references of the open containers
  std::vector<std::uint32_t> references_;  // references of the ended containers
  std::vector<Container> open_;
  std::vector<Container> ended_;
  std::vector<Slot> table_;  // open addressing; length 0 is free
  std::size_t tableUsed_ = 0;
};

}  // namespace ombrix::platform
