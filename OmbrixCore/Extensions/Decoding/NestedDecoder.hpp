#pragma once

#include <memory>
#include <string_view>
#include <utility>

#include "OmbrixPlatform/Coding/Decoder.hpp"

namespace ombrix {

/// The value under one key of a keyed container, as a single-value container.
template <platform::CodingKeyType Key>
class NestedSingleValueDecodingContainer final : public platform::SingleValueDecodingContainer {
 public:
  NestedSingleValueDecodingContainer(platform::KeyedDecodingContainer<Key> container, Key key)
      : container_(std::move(container)), key_(std::move(key)) {}

  // Kept: the key is not appended, here and in `NestedDecoder`; with it, errors and paths that a
  // value reports would no longer be those of the container it is updated from.
  [[nodiscard]] platform::CodingPath codingPath() const override { return container_.codingPath(); }
  [[nodiscard]] bool decodeNil() const override { return container_.decodeNil(key_); }
  [[nodiscard]] platform::CodingPrimitive decodePrimitive(
      platform::CodingPrimitiveKind kind) const override {
    return container_.base()->decodePrimitive(kind, platform::codingKeyText(key_));
  }
  [[nodiscard]] std::shared_ptr<platform::Decoder> superDecoder() const override {
    return container_.superDecoder(key_);
  }

 private:
  platform::KeyedDecodingContainer<Key> container_;
  Key key_;
};

/// A decoder whose content is the value under one key of a keyed container.
///
/// Nothing is read until a container is requested; a missing key fails then, with the container's
/// own error.
template <platform::CodingKeyType Key>
class NestedDecoder final : public platform::Decoder {
 public:
  NestedDecoder(platform::KeyedDecodingContainer<Key> container, Key key,
                platform::CodingUserInfo userInfo)
      : container_(std::move(container)), key_(std::move(key)), userInfo_(std::move(userInfo)) {}

  [[nodiscard]] platform::CodingPath codingPath() const override { return container_.codingPath(); }
  [[nodiscard]] const platform::CodingUserInfo& userInfo() const override { return userInfo_; }
  [[nodiscard]] std::shared_ptr<const platform::KeyedDecodingContainerBase> keyedContainer()
      override {
    return container_.superDecoder(key_)->keyedContainer();
  }
  [[nodiscard]] std::unique_ptr<platform::UnkeyedDecodingContainer> unkeyedContainer() override {
    return container_.nestedUnkeyedContainer(key_);
  }
  [[nodiscard]] std::unique_ptr<platform::SingleValueDecodingContainer> singleValueContainer()
      override {
    return std::make_unique<NestedSingleValueDecodingContainer<Key>>(container_, key_);
  }
  bool readJSON(platform::JSON& out) override {
    return container_.superDecoder(key_)->readJSON(out);
  }
  bool readPropertyList(platform::PropertyList& out) override {
    return container_.superDecoder(key_)->readPropertyList(out);
  }

 private:
  platform::KeyedDecodingContainer<Key> container_;
  Key key_;
  platform::CodingUserInfo userInfo_;
};

}  // namespace ombrix
