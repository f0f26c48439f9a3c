#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Coding/CodingError.hpp"
#include "OmbrixPlatform/Coding/CodingPath.hpp"
#include "OmbrixPlatform/Coding/CodingPrimitive.hpp"

namespace ombrix::platform {

class Decoder;
class JSON;
class PropertyList;

/// A key that a dictionary is asked for.
struct CodingKeyName {
  CodingKeyName(std::string_view name, bool fromDocument = false)
      : text(name), isContent(fromDocument) {}

  std::string_view text;
  bool isContent;  ///< as in `CodingKey`
};

/// The entries of a dictionary being decoded: what a format implements. `KeyedDecodingContainer`
/// is the face that callers use. Operations throw `DecodingError`.
class KeyedDecodingContainerBase {
 public:
  virtual ~KeyedDecodingContainerBase() = default;

  [[nodiscard]] virtual CodingPath codingPath() const = 0;
  [[nodiscard]] virtual const CodingUserInfo& userInfo() const = 0;
  [[nodiscard]] virtual std::vector<std::string> allKeys() const = 0;
  [[nodiscard]] virtual bool contains(std::string_view key) const = 0;
  /// Whether null stands there.
  [[nodiscard]] virtual bool decodeNil(std::string_view key) const = 0;
  [[nodiscard]] virtual CodingPrimitive decodePrimitive(CodingPrimitiveKind kind,
                                                        CodingKeyName key) const = 0;
  /// A decoder of the value under a key.
  [[nodiscard]] virtual std::shared_ptr<Decoder> superDecoder(CodingKeyName key) const = 0;
};

/// The items of an array being decoded, one after the other. Operations throw `DecodingError`:
/// value not found after the last item.
class UnkeyedDecodingContainer {
 public:
  virtual ~UnkeyedDecodingContainer() = default;

  [[nodiscard]] virtual CodingPath codingPath() const = 0;
  [[nodiscard]] virtual std::optional<std::size_t> count() const = 0;
  [[nodiscard]] virtual bool isAtEnd() const = 0;
  [[nodiscard]] virtual std::size_t currentIndex() const = 0;
  /// Whether the next item is null; if so, it is skipped.
  virtual bool decodeNil() = 0;
  virtual CodingPrimitive decodePrimitive(CodingPrimitiveKind kind) = 0;
  /// A decoder of the next item, which counts as taken.
  virtual std::shared_ptr<Decoder> superDecoder() = 0;

  /// Decodes the next item.
  template <class T>
  T decode();
  /// Empty at the end and for null.
  template <class T>
  std::optional<T> decodeIfPresent();
};

/// A decoder's content taken as one value. Operations throw `DecodingError`.
class SingleValueDecodingContainer {
 public:
  virtual ~SingleValueDecodingContainer() = default;

  [[nodiscard]] virtual CodingPath codingPath() const = 0;
  [[nodiscard]] virtual bool decodeNil() const = 0;
  [[nodiscard]] virtual CodingPrimitive decodePrimitive(CodingPrimitiveKind kind) const = 0;
  /// A decoder of the same content.
  [[nodiscard]] virtual std::shared_ptr<Decoder> superDecoder() const = 0;

  template <class T>
  [[nodiscard]] T decode() const;
};

/// The entries of a dictionary being decoded, by keys of a type of the caller's choice (text, or an
/// enumeration whose raw values are text). Cheap to copy. Operations throw `DecodingError`.
template <CodingKeyType Key = std::string>
class KeyedDecodingContainer {
 public:
  explicit KeyedDecodingContainer(std::shared_ptr<const KeyedDecodingContainerBase> base)
      : base_(std::move(base)) {}

  [[nodiscard]] CodingPath codingPath() const { return base_->codingPath(); }
  /// Keys of the dictionary in the order written; with an enumeration those it names.
  [[nodiscard]] std::vector<Key> allKeys() const;
  [[nodiscard]] bool contains(const Key& key) const { return base_->contains(codingKeyText(key)); }
  /// Whether null stands there. Throws key not found.
  [[nodiscard]] bool decodeNil(const Key& key) const {
    return base_->decodeNil(codingKeyText(key));
  }

  /// The value under a key. Throws key not found, or what its type throws.
  template <class T>
  [[nodiscard]] T decode(const Key& key) const;
  /// Empty when the key is missing or holds null.
  template <class T>
  [[nodiscard]] std::optional<T> decodeIfPresent(const Key& key) const {
    if (!contains(key) || decodeNil(key)) return std::nullopt;
    return decode<T>(key);
  }

  template <CodingKeyType NestedKey = std::string>
  [[nodiscard]] KeyedDecodingContainer<NestedKey> nestedContainer(const Key& key) const;
  [[nodiscard]] std::unique_ptr<UnkeyedDecodingContainer> nestedUnkeyedContainer(
      const Key& key) const;
  [[nodiscard]] std::shared_ptr<Decoder> superDecoder(const Key& key) const {
    return base_->superDecoder(codingKeyText(key));
  }

  [[nodiscard]] const std::shared_ptr<const KeyedDecodingContainerBase>& base() const {
    return base_;
  }

 private:
  std::shared_ptr<const KeyedDecodingContainerBase> base_;
};

/// The content of a document, or of a part of it, from which a type decodes itself.
///
/// Lives in a shared pointer and owns the bytes that it reads, so it may be kept. Asking for
/// another kind of container than the content throws `DecodingError`. Not synchronised.
class Decoder : public std::enable_shared_from_this<Decoder> {
 public:
  virtual ~Decoder() = default;

  [[nodiscard]] virtual CodingPath codingPath() const = 0;
  [[nodiscard]] virtual const CodingUserInfo& userInfo() const = 0;
  [[nodiscard]] virtual std::shared_ptr<const KeyedDecodingContainerBase> keyedContainer() = 0;
  [[nodiscard]] virtual std::unique_ptr<UnkeyedDecodingContainer> unkeyedContainer() = 0;
  [[nodiscard]] virtual std::unique_ptr<SingleValueDecodingContainer> singleValueContainer() = 0;
  /// Announces how many items will come and how much memory each will take. Throws `DecodingError`
  /// if that is more than the document accounts for. Returns for how many of them room may be
  /// reserved at once: none where the format does not count.
  virtual std::size_t expectItems(std::size_t count, std::size_t bytesEach);
  /// The content as the value type of its format; false where the format is another.
  virtual bool readJSON(JSON& out);
  virtual bool readPropertyList(PropertyList& out);

  template <CodingKeyType Key = std::string>
  [[nodiscard]] KeyedDecodingContainer<Key> container() {
    return KeyedDecodingContainer<Key>{keyedContainer()};
  }
};

template <CodingKeyType Key>
std::vector<Key> KeyedDecodingContainer<Key>::allKeys() const {
  std::vector<Key> keys;
  for (std::string& name : base_->allKeys()) {
    if constexpr (std::is_enum_v<Key>) {
      if (const auto key = fromRawValue<Key>(std::string_view{name})) keys.push_back(*key);
    } else {
      keys.push_back(Key{std::move(name)});
    }
  }
  return keys;
}

template <CodingKeyType Key>
template <CodingKeyType NestedKey>
KeyedDecodingContainer<NestedKey> KeyedDecodingContainer<Key>::nestedContainer(
    const Key& key) const {
  return superDecoder(key)->template container<NestedKey>();
}

template <CodingKeyType Key>
std::unique_ptr<UnkeyedDecodingContainer> KeyedDecodingContainer<Key>::nestedUnkeyedContainer(
    const Key& key) const {
  return superDecoder(key)->unkeyedContainer();
}

/// Reads any `Decoder` as a `CodingReader`.
class DecoderReader {
 public:
  explicit DecoderReader(Decoder& decoder) : decoder_(decoder), path_(decoder.codingPath()) {}

  bool readNull();
  bool readBool() { return std::get<bool>(read(CodingPrimitiveKind::boolean)); }
  std::int64_t readInteger() { return std::get<std::int64_t>(read(CodingPrimitiveKind::integer)); }
  std::uint64_t readUnsignedInteger() {
    return std::get<std::uint64_t>(read(CodingPrimitiveKind::unsignedInteger));
  }
  double readReal() { return std::get<double>(read(CodingPrimitiveKind::real)); }
  std::string_view readText() {
    text_ = std::get<std::string>(read(CodingPrimitiveKind::text));
    return text_;
  }
  Data readData() { return std::get<Data>(read(CodingPrimitiveKind::data)); }
  Date readDate() { return std::get<Date>(read(CodingPrimitiveKind::date)); }
  /// Any value, as a tree. Throws where the decoder's format is another.
  JSON readJSON();
  PropertyList readPropertyList();

  void beginObject();
  bool nextKey(std::string_view& key);
  void beginArray();
  bool nextItem();
  /// As in `BinaryPropertyListReader`.
  std::size_t expectItems(std::size_t bytesEach);
  void skip();
  std::optional<std::string> peekText(std::string_view key);
  std::shared_ptr<Decoder> decoder();

  [[nodiscard]] CodingPathChain& pathChain() noexcept { return path_; }
  [[nodiscard]] CodingPath codingPath() const { return path_.path(); }

 private:
  // An object (the keys that are left, last first) or an array.
  struct Frame {
    std::shared_ptr<const KeyedDecodingContainerBase> keyed;
    std::vector<std::string> keys;
    std::string key;
    std::unique_ptr<UnkeyedDecodingContainer> unkeyed;
    std::shared_ptr<Decoder> peeked;  // the array's current item, once it was opened
  };

  CodingPrimitive read(CodingPrimitiveKind kind);
  [[nodiscard]] CodingKeyName keyOf(const Frame& frame) const noexcept {
    return {frame.key, path_.endsInContent()};
  }

  Decoder& decoder_;
  CodingPathChain path_;
  std::vector<Frame> frames_;
  std::string text_;
};

}  // namespace ombrix::platform

#include "OmbrixPlatform/Coding/Codable.hpp"  // the templates that decode a type
