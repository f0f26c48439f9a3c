#pragma once

#include <array>
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

/// Writes a binary property list in one pass, as a `CodingWriter`.
///
/// Equal short texts and data, and numbers that soon come again, are stored once; see `fileBy` for
/// the values where a reader would not accept that. The caller keeps calls balanced and keys
/// distinct. Throws `EncodingError` for text that is not UTF-8 and for containers nested too deep.
/// Borrows the user info. One thread.
class BinaryPropertyListWriter {
 public:
  enum class Sharing : std::uint8_t { keysAndValues, keys };

  explicit BinaryPropertyListWriter(const CodingUserInfo* userInfo = nullptr,
                                    Sharing sharing = Sharing::keysAndValues);

  /// The file that `encode(writer)` writes. Where sharing values would make a reader take the file
  /// for a hostile one, as with many absent values of a large type, none are shared; then `encode`
  /// is called twice.
  template <class Encode>
  static Data fileBy(const CodingUserInfo* userInfo, const Encode& encode) {
    BinaryPropertyListWriter writer(userInfo);
    encode(writer);
    if (writer.staysWithinAllowance()) return writer.finish();
    BinaryPropertyListWriter unshared(userInfo, Sharing::keys);
    encode(unshared);
    return unshared.finish();
  }

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
  /// A key in static memory, recognised by its address.
  void plainKey(std::string_view name) {
    if (name.size() > kLongestShared) return key(name);
    KnownKey& known = knownKeys_[addressHash(name.data()) % knownKeys_.size()];
    if (known.name.data() != name.data() || known.name.size() != name.size()) {
      known = {name, textId(name)};
    }
    pending_.push_back(known.id);
  }
  void endObject() { end(); }
  void beginArray() { begin(false); }
  void endArray() { end(); }
  /// Called when an array or object has begun: announces how much memory each of its items takes.
  void expectItems(std::size_t bytesEach) { open_.back().itemBytes = bytesEach; }
  void writeWith(void (*encode)(Encoder&, const void*), const void* value);

  /// The finished file. The writer is empty afterwards.
  Data finish();

  [[nodiscard]] CodingPathChain& pathChain() noexcept { return path_; }
  [[nodiscard]] CodingPath codingPath() const { return path_.path(); }

 private:
  // Longer objects are not shared.
  static constexpr std::size_t kLongestShared = 128;

  struct Slot {
    std::uint32_t hash = 0;
    std::uint32_t idAfter = 0;  // the id and one more; 0 is free
  };
  struct RecentNumber {
    std::uint64_t bits = 0;
    std::uint32_t idAfter = 0;
    unsigned marker = 0;
  };
  struct KnownKey {
    std::string_view name;
    std::uint32_t id = 0;
  };
  struct Container {
    std::uint32_t id;
    bool isDictionary;
    std::size_t firstReference;  // in pending_ while open, in references_ once ended
    std::size_t references;
    std::size_t itemBytes = 0;  // in memory, where a reader makes room for them all at once
  };

  [[noreturn]] void refuse(const char* what) const;
  void begin(bool isDictionary);
  void end();
  std::uint32_t newId(std::uint64_t offset);
  std::uint32_t textId(std::string_view text, Sharing sharing = Sharing::keysAndValues);
  std::uint32_t uniqueTail(std::size_t start, Sharing sharing);
  [[nodiscard]] bool staysWithinAllowance() const;
  void number(unsigned marker, std::uint64_t bits, unsigned size);
  static std::size_t addressHash(const char* address) noexcept {
    const auto bits = reinterpret_cast<std::uintptr_t>(address);
    return static_cast<std::size_t>(bits ^ bits >> 5 ^ bits >> 10);
  }
  void growTable();
  void byte(unsigned value) { leaves_.push_back(static_cast<char>(value)); }
  void bigEndian(std::uint64_t value, unsigned size);
  void header(unsigned marker, std::uint64_t count);
  void emitContainer(Data& out, const Container& container, unsigned referenceSize) const;

  const CodingUserInfo* userInfo_;
  Sharing sharing_;
  CodingPathChain path_;
  std::string leaves_;                     // the scalars as they will stand in the file
  std::vector<std::uint64_t> offsets_;     // by id, from the start of leaves_
  std::vector<std::uint32_t> pending_;     // references of the open containers
  std::vector<std::uint32_t> references_;  // references of the ended containers
  std::vector<Container> open_;
  std::vector<Container> ended_;
  std::vector<Slot> table_;  // texts and data, by open addressing
  std::size_t tableUsed_ = 0;
  std::vector<RecentNumber> recent_;  // the last number with each hash
  std::array<KnownKey, 64> knownKeys_{};
  bool isForDecoders_ = false;  // the part being written is read through `Decoder`
  // How much of its allowance a reader will use up.
  std::uint64_t visits_ = 0, visitBytes_ = 0, widestItem_ = 0, decoderBytes_ = 0;
};

}  // namespace ombrix::platform
