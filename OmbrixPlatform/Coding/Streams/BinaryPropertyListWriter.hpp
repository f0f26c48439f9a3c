#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixPlatform/Coding/Codable.hpp"
#include "OmbrixPlatform/Coding/PropertyListSerialization.hpp"
#include "OmbrixPlatform/Values/Data.hpp"
#include "OmbrixPlatform/Values/Date.hpp"

namespace ombrix::platform {

/// The text that stands for null where a value must stand.
inline constexpr std::string_view kPropertyListNull = "$null";

/// Writes a binary property list in one go, in the manner of `CodingWriter`.
///
/// Equal scalars are stored once. The caller keeps calls balanced and keys distinct. Throws
/// `EncodingError` for text that is not UTF-8 and for containers nested too deep. Borrows the user
/// info. One thread.
class BinaryPropertyListWriter {
 public:
  explicit BinaryPropertyListWriter(const CodingUserInfo* userInfo = nullptr);

  /// Property lists have no null: the text "$null" stands for it.
  void null() { text(kPropertyListNull); }
  void boolean(bool value);
  void integer(std::int64_t value);
  void unsignedInteger(std::uint64_t value);
  void real(double value);
  void text(std::string_view value);
  void data(DataView value);
  void date(Date value);
  void uid(PropertyList::UID value);
  void propertyList(const PropertyList& value);

  void beginObject() { begin(true); }
  void key(std::string_view name);
  void endObject() { end(); }
  void beginArray() { begin(false); }
  void endArray() { end(); }
  void writeWith(void (*encode)(Encoder&, const void*), const void* value);

  /// The finished file. The writer is empty afterwards.
  Data finish();

  [[nodiscard]] CodingPathChain& pathChain() noexcept { return path_; }
  [[nodiscard]] CodingPath codingPath() const { return path_.path(); }

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

  [[noreturn]] void refuse(const char* what) const;
  void begin(bool isDictionary);
  void end();
  std::uint32_t newId(std::uint64_t offset);
  std::uint32_t textId(std::string_view text);
  std::uint32_t uniqueTail(std::size_t start);
  void growTable();
  void byte(unsigned value) { leaves_.push_back(static_cast<char>(value)); }
  void bigEndian(std::uint64_t value, unsigned size);
  void header(unsigned marker, std::uint64_t count);
  void emitContainer(Data& out, const Container& container, unsigned referenceSize) const;

  const CodingUserInfo* userInfo_;
  CodingPathChain path_;
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
