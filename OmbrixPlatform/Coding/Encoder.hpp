#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixPlatform/Coding/CodingError.hpp"
#include "OmbrixPlatform/Coding/CodingPath.hpp"
#include "OmbrixPlatform/Coding/CodingPrimitive.hpp"

namespace ombrix::platform {

class Encoder;
class JSON;
class PropertyList;

/// The entries of a dictionary being encoded: what a format implements. `KeyedEncodingContainer`
/// is the face that callers use. Operations throw `EncodingError`.
class KeyedEncodingContainerBase {
 public:
  virtual ~KeyedEncodingContainerBase() = default;

  [[nodiscard]] virtual CodingPath codingPath() const = 0;
  virtual void encodeNil(std::string_view key) = 0;
  virtual void encodePrimitive(const CodingPrimitive& value, std::string_view key) = 0;
  /// An encoder of the value under a key.
  [[nodiscard]] virtual std::shared_ptr<Encoder> superEncoder(std::string_view key) = 0;
};

/// The items of an array being encoded, appended one after the other.
class UnkeyedEncodingContainer {
 public:
  virtual ~UnkeyedEncodingContainer() = default;

  [[nodiscard]] virtual CodingPath codingPath() const = 0;
  [[nodiscard]] virtual std::size_t count() const = 0;
  virtual void encodeNil() = 0;
  virtual void encodePrimitive(const CodingPrimitive& value) = 0;
  /// An encoder of one more item.
  [[nodiscard]] virtual std::shared_ptr<Encoder> superEncoder() = 0;

  template <class T>
  void encode(const T& value);
};

/// An encoder's content as one value.
class SingleValueEncodingContainer {
 public:
  virtual ~SingleValueEncodingContainer() = default;

  [[nodiscard]] virtual CodingPath codingPath() const = 0;
  virtual void encodeNil() = 0;
  virtual void encodePrimitive(const CodingPrimitive& value) = 0;
  /// An encoder of the same content.
  [[nodiscard]] virtual std::shared_ptr<Encoder> superEncoder() = 0;

  template <class T>
  void encode(const T& value);
};

/// The entries of a dictionary being encoded, by keys of a type of the caller's choice. A key
/// encoded twice keeps its place and takes the later value.
template <CodingKeyType Key = std::string>
class KeyedEncodingContainer {
 public:
  explicit KeyedEncodingContainer(std::shared_ptr<KeyedEncodingContainerBase> base)
      : base_(std::move(base)) {}

  [[nodiscard]] CodingPath codingPath() const { return base_->codingPath(); }
  void encodeNil(const Key& key) { base_->encodeNil(codingKeyText(key)); }
  template <class T>
  void encode(const T& value, const Key& key);

  template <CodingKeyType NestedKey = std::string>
  [[nodiscard]] KeyedEncodingContainer<NestedKey> nestedContainer(const Key& key);
  [[nodiscard]] std::unique_ptr<UnkeyedEncodingContainer> nestedUnkeyedContainer(const Key& key);
  [[nodiscard]] std::shared_ptr<Encoder> superEncoder(const Key& key) {
    return base_->superEncoder(codingKeyText(key));
  }

 private:
  std::shared_ptr<KeyedEncodingContainerBase> base_;
};

/// The destination into which a type encodes itself. Ask for one kind of container; asking for
/// another kind when something is written already throws `EncodingError`. Not synchronised.
class Encoder {
 public:
  virtual ~Encoder() = default;

  [[nodiscard]] virtual CodingPath codingPath() const = 0;
  [[nodiscard]] virtual const CodingUserInfo& userInfo() const = 0;
  [[nodiscard]] virtual std::shared_ptr<KeyedEncodingContainerBase> keyedContainer() = 0;
  [[nodiscard]] virtual std::unique_ptr<UnkeyedEncodingContainer> unkeyedContainer() = 0;
  [[nodiscard]] virtual std::unique_ptr<SingleValueEncodingContainer> singleValueContainer() = 0;
  /// Announces how many items follow and how much memory each takes where it is decoded.
  virtual void expectItems(std::size_t count, std::size_t bytesEach);
  /// Encodes a value type of a format as it is; false where the encoder's format is another.
  virtual bool writeJSON(const JSON& value);
  virtual bool writePropertyList(const PropertyList& value);

  template <CodingKeyType Key = std::string>
  [[nodiscard]] KeyedEncodingContainer<Key> container() {
    return KeyedEncodingContainer<Key>{keyedContainer()};
  }
};

template <CodingKeyType Key>
template <CodingKeyType NestedKey>
KeyedEncodingContainer<NestedKey> KeyedEncodingContainer<Key>::nestedContainer(const Key& key) {
  return superEncoder(key)->template container<NestedKey>();
}

template <CodingKeyType Key>
std::unique_ptr<UnkeyedEncodingContainer> KeyedEncodingContainer<Key>::nestedUnkeyedContainer(
    const Key& key) {
  return superEncoder(key)->unkeyedContainer();
}

/// Writes to any `Encoder` as a `CodingWriter`.
class EncoderWriter {
 public:
  explicit EncoderWriter(Encoder& encoder) : encoder_(encoder), path_(encoder.codingPath()) {}

  void null();
  void boolean(bool value) { write(value); }
  void integer(std::int64_t value) { write(value); }
  void unsignedInteger(std::uint64_t value) { write(value); }
  void real(double value) { write(value); }
  void text(std::string_view value) { write(std::string{value}); }
  void data(DataView value) { write(Data{value.begin(), value.end()}); }
  void date(Date value) { write(value); }
  /// Throws `EncodingError` where the encoder's format is another.
  void json(const JSON& value);
  void propertyList(const PropertyList& value);

  void beginObject();
  void key(std::string_view name) {
    frames_.back().key = name;
    ++frames_.back().keys;
  }
  void endObject() { end(); }
  void beginArray();
  void endArray() { end(); }
  /// As in `BinaryPropertyListWriter`.
  void expectItems(std::size_t bytesEach) { frames_.back().itemBytes = bytesEach; }

  /// Lets `encode` write the next value through an encoder.
  void writeWith(void (*encode)(Encoder&, const void*), const void* value);

  [[nodiscard]] CodingPathChain& pathChain() noexcept { return path_; }
  [[nodiscard]] CodingPath codingPath() const { return path_.path(); }

 private:
  struct Frame {
    std::shared_ptr<KeyedEncodingContainerBase> keyed;
    std::string key;
    std::size_t keys = 0;
    std::unique_ptr<UnkeyedEncodingContainer> unkeyed;
    std::size_t itemBytes = 0;
  };

  void end();
  void write(const CodingPrimitive& value);
  std::shared_ptr<Encoder> nested();
  template <class Tree>
  void writeTree(bool (Encoder::*writeIt)(const Tree&), const Tree& value);

  Encoder& encoder_;
  CodingPathChain path_;
  std::vector<Frame> frames_;
};

}  // namespace ombrix::platform

#include "OmbrixPlatform/Coding/Codable.hpp"  // the templates that encode a type
