#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Coding/Decoder.hpp"

namespace ombrix::platform::detail {

/// The `Decoder` of a tree of values. `Format` names the tree and its options, and gives `isNull`,
/// `kindName` (as in "a text") and `primitive`, which throws for a value that is not of that kind.
template <class Format>
class TreeDecoder final : public Decoder {
 public:
  using Tree = typename Format::Tree;

  struct Document {
    Tree root;
    typename Format::Options options;
  };

  /// One value in the tree and the way to it.
  struct Place {
    std::shared_ptr<const Document> document;
    const Tree* value;
    CodingPath path;

    [[nodiscard]] Place at(const Tree& item, CodingKey key) const {
      Place place{document, &item, path};
      place.path.push_back(std::move(key));
      return place;
    }
    [[nodiscard]] CodingPrimitive primitive(CodingPrimitiveKind kind) const {
      return Format::primitive(*value, kind, document->options, path);
    }
    [[nodiscard]] std::shared_ptr<Decoder> decoder() const {
      return std::make_shared<TreeDecoder>(*this);
    }
    [[noreturn]] void mismatch(std::string_view expected) const {
      if (Format::isNull(*value)) throw DecodingError::valueNotFound(expected, path);
      throw DecodingError::typeMismatch(expected, Format::kindName(*value), path);
    }
  };

  explicit TreeDecoder(Place place) : place_(std::move(place)) {}

  [[nodiscard]] CodingPath codingPath() const override { return place_.path; }
  [[nodiscard]] const CodingUserInfo& userInfo() const override {
    return place_.document->options.userInfo;
  }
  [[nodiscard]] std::shared_ptr<const KeyedDecodingContainerBase> keyedContainer() override {
    if (place_.value->dictionary() == nullptr) place_.mismatch("a dictionary");
    return std::make_shared<Keyed>(place_);
  }
  [[nodiscard]] std::unique_ptr<UnkeyedDecodingContainer> unkeyedContainer() override {
    if (place_.value->array() == nullptr) place_.mismatch("an array");
    return std::make_unique<Unkeyed>(place_);
  }
  [[nodiscard]] std::unique_ptr<SingleValueDecodingContainer> singleValueContainer() override {
    return std::make_unique<Single>(place_);
  }

 private:
  class Keyed final : public KeyedDecodingContainerBase {
   public:
    explicit Keyed(Place place) : place_(std::move(place)) {}

    [[nodiscard]] CodingPath codingPath() const override { return place_.path; }
    [[nodiscard]] const CodingUserInfo& userInfo() const override {
      return place_.document->options.userInfo;
    }
    [[nodiscard]] std::vector<std::string> allKeys() const override {
      std::vector<std::string> keys;
      for (const auto& [key, value] : *place_.value->dictionary()) keys.push_back(key);
      return keys;
    }
    [[nodiscard]] bool contains(std::string_view key) const override {
      return place_.value->find(key) != nullptr;
    }
    [[nodiscard]] bool decodeNil(std::string_view key) const override {
      return Format::isNull(value(key));
    }
    [[nodiscard]] CodingPrimitive decodePrimitive(CodingPrimitiveKind kind,
                                                  std::string_view key) const override {
      return item(key).primitive(kind);
    }
    [[nodiscard]] std::shared_ptr<Decoder> superDecoder(std::string_view key) const override {
      return item(key).decoder();
    }

   private:
    [[nodiscard]] const Tree& value(std::string_view key) const {
      const Tree* found = place_.value->find(key);
      if (found == nullptr) throw DecodingError::keyNotFound(key, place_.path);
      return *found;
    }
    [[nodiscard]] Place item(std::string_view key) const {
      return place_.at(value(key), {std::string{key}, std::nullopt});
    }

    Place place_;
  };

  class Unkeyed final : public UnkeyedDecodingContainer {
   public:
    explicit Unkeyed(Place place) : place_(std::move(place)) {}

    [[nodiscard]] CodingPath codingPath() const override { return place_.path; }
    [[nodiscard]] std::optional<std::size_t> count() const override {
      return place_.value->array()->size();
    }
    [[nodiscard]] bool isAtEnd() const override { return index_ == place_.value->array()->size(); }
    [[nodiscard]] std::size_t currentIndex() const override { return index_; }
    bool decodeNil() override {
      const bool isNull = Format::isNull(*next().value);
      if (isNull) ++index_;
      return isNull;
    }
    CodingPrimitive decodePrimitive(CodingPrimitiveKind kind) override {
      CodingPrimitive value = next().primitive(kind);
      ++index_;
      return value;
    }
    std::shared_ptr<Decoder> superDecoder() override {
      std::shared_ptr<Decoder> decoder = next().decoder();
      ++index_;
      return decoder;
    }

   private:
    [[nodiscard]] Place next() const {
      const CodingKey key{"Index " + std::to_string(index_), index_};
      if (!isAtEnd()) return place_.at((*place_.value->array())[index_], key);
      throw DecodingError::valueNotFound("a further item", place_.at(*place_.value, key).path);
    }

    Place place_;
    std::size_t index_ = 0;
  };

  class Single final : public SingleValueDecodingContainer {
   public:
    explicit Single(Place place) : place_(std::move(place)) {}

    [[nodiscard]] CodingPath codingPath() const override { return place_.path; }
    [[nodiscard]] bool decodeNil() const override { return Format::isNull(*place_.value); }
    [[nodiscard]] CodingPrimitive decodePrimitive(CodingPrimitiveKind kind) const override {
      return place_.primitive(kind);
    }
    [[nodiscard]] std::shared_ptr<Decoder> superDecoder() const override {
      return place_.decoder();
    }

   private:
    Place place_;
  };

  Place place_;
};

template <class Format>
std::shared_ptr<Decoder> makeTreeDecoder(typename Format::Tree tree,
                                         const typename Format::Options& options, CodingPath path) {
  using Made = TreeDecoder<Format>;
  using Document = typename Made::Document;
  const auto document = std::make_shared<const Document>(Document{std::move(tree), options});
  return std::make_shared<Made>(typename Made::Place{document, &document->root, std::move(path)});
}

}  // namespace ombrix::platform::detail
