#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "OmbrixPlatform/Coding/PropertyListSerialization.hpp"
#include "OmbrixPlatform/Values/Data.hpp"

namespace ombrix::platform {

/// Reads the objects of a binary property list where they lie, each checked as it is reached.
///
/// Borrows the bytes. Every operation throws `PropertyListError` for damaged bytes; none reads out
/// of bounds. Following references in circles or along exploding paths is the caller's to stop:
/// see `Allowance`. Any thread.
class BinaryPropertyListView {
 public:
  enum class Kind : std::uint8_t {
    boolean,
    integer,
    unsignedInteger,  // beyond the signed 64-bit range
    real,
    date,
    uid,
    data,
    text8,   // ASCII, or UTF-8 from lenient writers
    text16,  // UTF-16, big-endian
    array,
    dictionary
  };

  struct Object {
    Kind kind;
    std::uint64_t bits;        // the value of a scalar; of others the number of items or units
    const std::byte* payload;  // bytes, units or references; bounds are checked already

    [[nodiscard]] double real() const noexcept { return std::bit_cast<double>(bits); }
  };

  /// Work and memory that reading may use up: many references may lead to one object. In bytes;
  /// grows with the file.
  ///
  /// A file without repeated references uses up nothing but its texts and data: `visit` is free as
  /// often as there are objects.
  class Allowance {
   public:
    Allowance(std::size_t fileSize, std::uint64_t objectCount)
        : left_(bytesFor(fileSize)), free_(objectCount) {}

    /// What a file of this many bytes may use up. A writer that shares objects stays below.
    static constexpr std::uint64_t bytesFor(std::uint64_t fileSize) noexcept {
      return kBase + kFactor * fileSize;
    }
    /// What going to an object costs, taken or skipped; bytes of texts and data and what its value
    /// takes in memory come on top.
    static constexpr std::uint64_t kVisitCost = 16;
    /// What a decoder of a value costs, and a value of up to as many bytes with it; and what each
    /// step of the path to it costs.
    static constexpr std::uint64_t kDecoderCost = 128, kPathCost = 8;
    /// What an entry of a dictionary takes in a tree, at most.
    static constexpr std::uint64_t kEntryCost = sizeof(PropertyList::Dictionary::Entry) + 32;

    void spend(std::uint64_t bytes) {
      if (bytes >= left_) refuse();
      left_ -= bytes;
    }
    /// For going to objects by `count` references, each of which takes this many bytes more.
    void visit(std::uint64_t count, std::uint64_t bytesEach) {
      const std::uint64_t unpaid = count - std::min(count, free_);
      free_ -= count - unpaid;
      if (unpaid > left_ / bytesEach) refuse();
      left_ -= unpaid * bytesEach;
    }

   private:
    static constexpr std::uint64_t kBase = 16 << 20;
    static constexpr std::uint64_t kFactor = 256;
    [[noreturn]] static void refuse();
    std::uint64_t left_;
    std::uint64_t free_;
  };

  /// Whether bytes begin like a binary property list.
  static bool matches(DataView bytes) noexcept;

  /// Checks header and trailer.
  explicit BinaryPropertyListView(DataView bytes);

  [[nodiscard]] std::size_t size() const noexcept { return size_; }
  [[nodiscard]] std::uint64_t topObject() const noexcept { return topObject_; }
  [[nodiscard]] std::uint64_t objectCount() const noexcept { return objectCount_; }

  /// The object with a number.
  [[nodiscard]] Object object(std::uint64_t index) const {
    if (index >= objectCount_) damaged("a reference leads to no object");
    const std::uint64_t offset = readSized(offsets_ + index * offsetSize_, offsetSize_);
    if (offset < kHeaderSize || offset >= objectsEnd_) damaged("an object lies out of bounds");
    return parse(bytes_ + offset);
  }

  /// The number that an item of an array, or a key of a dictionary, refers to.
  [[nodiscard]] std::uint64_t reference(const Object& container, std::uint64_t item) const {
    return readSized(container.payload + item * referenceSize_, referenceSize_);
  }
  /// The number that a value of a dictionary refers to.
  [[nodiscard]] std::uint64_t valueReference(const Object& dictionary, std::uint64_t item) const {
    return reference(dictionary, dictionary.bits + item);
  }

  /// The bytes of data or of 8-bit text (unchecked) seen as text.
  static std::string_view view(const Object& object) noexcept {
    return {reinterpret_cast<const char*>(object.payload), static_cast<std::size_t>(object.bits)};
  }

  /// Text as UTF-8: `scratch` is used where it is not stored so.
  static std::string_view text(const Object& object, std::string& scratch);

 private:
  static constexpr std::size_t kHeaderSize = 8;
  static constexpr std::size_t kTrailerSize = 32;

  [[noreturn]] static void damaged(const char* what);

  // The trailer behind the objects and the table lets eight bytes be loaded from any of them.
  static std::uint64_t readSized(const std::byte* at, unsigned size) noexcept {
    std::uint64_t value;
    std::memcpy(&value, at, sizeof value);
    if constexpr (std::endian::native == std::endian::little) value = __builtin_bswap64(value);
    return value >> (64 - 8 * size);
  }

  [[nodiscard]] Object parse(const std::byte* at) const;
  [[nodiscard]] Object parseNumber(const std::byte* at, unsigned marker) const;
  [[nodiscard]] std::uint64_t parseCount(const std::byte*& at, unsigned low) const;

  const std::byte* bytes_;
  std::size_t size_;
  const std::byte* offsets_ = nullptr;
  std::uint64_t objectsEnd_ = 0;  // offset
  std::uint64_t objectCount_ = 0;
  std::uint64_t topObject_ = 0;
  unsigned offsetSize_ = 0;
  unsigned referenceSize_ = 0;
};

}  // namespace ombrix::platform
