#pragma once

#include <concepts>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Coding/Decoder.hpp"
#include "OmbrixPlatform/Coding/OrderedDictionary.hpp"

namespace ombrix::platform::detail {

/// Reads one value of a kind from a reader in one pass.
template <class Reader>
CodingPrimitive readPrimitive(Reader& reader, CodingPrimitiveKind kind) {
  switch (kind) {
    case CodingPrimitiveKind::boolean:
      return reader.readBool();
    case CodingPrimitiveKind::integer:
      return reader.readInteger();
    case CodingPrimitiveKind::unsignedInteger:
      return reader.readUnsignedInteger();
    case CodingPrimitiveKind::real:
      return reader.readReal();
    case CodingPrimitiveKind::text:
      return std::string{reader.readText()};
    case CodingPrimitiveKind::data:
      return reader.readData();
    case CodingPrimitiveKind::date:
      break;
  }
  return reader.readDate();
}

/// The `Decoder` of a document that allows moving back and forth.
///
/// `Format` names the document (which has `userInfo`), the position of a value in it (`Cursor`) and
/// its value type (`Tree`). It has `isNull`, the `entries` of a dictionary (of equal keys the
/// last), the `items` of an array, `primitive` and `tree`, which throw for a value of another kind;
/// and `expectItems`, if it uses what `Decoder` announces.
template <class Format>
class TreeDecoder final : public Decoder {
 public:
  using Document = typename Format::Document;
  using Cursor = typename Format::Cursor;

  /// One value in the document and its path.
  struct Place {
    std::shared_ptr<const Document> document;
    Cursor cursor;
    CodingPath path;

    [[nodiscard]] Place at(Cursor item, CodingKey key) const {
      Place place{document, item, path};
      place.path.push_back(std::move(key));
      return place;
    }
    [[nodiscard]] bool isNull() const { return Format::isNull(*document, cursor); }
    [[nodiscard]] CodingPrimitive primitive(CodingPrimitiveKind kind) const {
      return Format::primitive(*document, cursor, kind, path);
    }
    [[nodiscard]] std::shared_ptr<Decoder> decoder() const {
      return std::make_shared<TreeDecoder>(*this);
    }
  };

  explicit TreeDecoder(Place place) : place_(std::move(place)) {}

  [[nodiscard]] CodingPath codingPath() const override { return place_.path; }
  [[nodiscard]] const CodingUserInfo& userInfo() const override {
    return place_.document->userInfo();
  }
  [[nodiscard]] std::shared_ptr<const KeyedDecodingContainerBase> keyedContainer() override {
    return std::make_shared<Keyed>(place_);
  }
  [[nodiscard]] std::unique_ptr<UnkeyedDecodingContainer> unkeyedContainer() override {
    return std::make_unique<Unkeyed>(place_);
  }
  [[nodiscard]] std::unique_ptr<SingleValueDecodingContainer> singleValueContainer() override {
    return std::make_unique<Single>(place_);
  }
  std::size_t expectItems(std::size_t count, std::size_t bytesEach) override {
    if constexpr (requires {
                    Format::expectItems(*place_.document, count, bytesEach, place_.path);
                  }) {
      Format::expectItems(*place_.document, count, bytesEach, place_.path);
      return count;
    }
    return 0;
  }
  bool readJSON(JSON& out) override { return readTree(out); }
  bool readPropertyList(PropertyList& out) override { return readTree(out); }

 private:
  template <class Tree>
  bool readTree(Tree& out) const {
    constexpr bool kIsOurs = std::same_as<Tree, typename Format::Tree>;
    if constexpr (kIsOurs) out = Format::tree(*place_.document, place_.cursor, place_.path);
    return kIsOurs;
  }

  class Keyed final : public KeyedDecodingContainerBase {
   public:
    explicit Keyed(Place place)
        : place_(std::move(place)),
          entries_(Format::entries(*place_.document, place_.cursor, place_.path)) {}

    [[nodiscard]] CodingPath codingPath() const override { return place_.path; }
    [[nodiscard]] const CodingUserInfo& userInfo() const override {
      return place_.document->userInfo();
    }
    [[nodiscard]] std::vector<std::string> allKeys() const override {
      std::vector<std::string> keys;
      keys.reserve(entries_.size());
      for (const auto& [key, cursor] : entries_) keys.push_back(key);
      return keys;
    }
    [[nodiscard]] bool contains(std::string_view key) const override {
      return entries_.contains(key);
    }
    [[nodiscard]] bool decodeNil(std::string_view key) const override {
      return Format::isNull(*place_.document, cursor(key));
    }
    [[nodiscard]] CodingPrimitive decodePrimitive(CodingPrimitiveKind kind,
                                                  CodingKeyName key) const override {
      return item(key).primitive(kind);
    }
    [[nodiscard]] std::shared_ptr<Decoder> superDecoder(CodingKeyName key) const override {
      return item(key).decoder();
    }

   private:
    [[nodiscard]] Cursor cursor(std::string_view key) const {
      const Cursor* found = entries_.find(key);
      if (found == nullptr) throw DecodingError::keyNotFound(key, place_.path);
      return *found;
    }
    [[nodiscard]] Place item(CodingKeyName key) const {
      return place_.at(cursor(key.text), {std::string{key.text}, std::nullopt, key.isContent});
    }

    Place place_;
    OrderedDictionary<Cursor> entries_;
  };

  class Unkeyed final : public UnkeyedDecodingContainer {
   public:
    explicit Unkeyed(Place place)
        : place_(std::move(place)),
          items_(Format::items(*place_.document, place_.cursor, place_.path)) {}

    [[nodiscard]] CodingPath codingPath() const override { return place_.path; }
    [[nodiscard]] std::optional<std::size_t> count() const override { return items_.size(); }
    [[nodiscard]] bool isAtEnd() const override { return index_ == items_.size(); }
    [[nodiscard]] std::size_t currentIndex() const override { return index_; }
    bool decodeNil() override {
      const bool isNull = next().isNull();
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
      if (!isAtEnd()) return place_.at(items_[index_], key);
      throw DecodingError::valueNotFound("a further item", place_.at(place_.cursor, key).path);
    }

    Place place_;
    std::vector<Cursor> items_;
    std::size_t index_ = 0;
  };

  class Single final : public SingleValueDecodingContainer {
   public:
    explicit Single(Place place) : place_(std::move(place)) {}

    [[nodiscard]] CodingPath codingPath() const override { return place_.path; }
    [[nodiscard]] bool decodeNil() const override { return place_.isNull(); }
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
std::shared_ptr<Decoder> makeTreeDecoder(std::shared_ptr<const typename Format::Document> document,
                                         typename Format::Cursor cursor, CodingPath path) {
  using Made = TreeDecoder<Format>;
  return std::make_shared<Made>(typename Made::Place{std::move(document), cursor, std::move(path)});
}

}  // namespace ombrix::platform::detail
