#pragma once

#include <concepts>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "OmbrixPlatform/Coding/Encoder.hpp"
#include "OmbrixPlatform/Coding/OrderedDictionary.hpp"

namespace ombrix::platform::detail {

/// The `Encoder` that builds a tree of values. `Format` names the tree and its options, and has
/// `null` and `primitive`, which throws `EncodingError` for values that the tree cannot hold.
template <class Format>
class TreeEncoder final : public Encoder {
 public:
  using Tree = typename Format::Tree;

  /// A value being built. Nodes keep their addresses, so containers may be filled in any order.
  struct Node {
    using Items = std::vector<std::unique_ptr<Node>>;
    using Entries = OrderedDictionary<std::unique_ptr<Node>>;
    std::variant<std::monostate, Tree, Items, Entries> content;

    /// The finished value; an empty dictionary if nothing was written.
    Tree take() {
      if (Tree* tree = std::get_if<Tree>(&content)) return std::move(*tree);
      if (Items* items = std::get_if<Items>(&content)) {
        typename Tree::Array array;
        array.reserve(items->size());
        for (const auto& item : *items) array.push_back(item->take());
        return array;
      }
      typename Tree::Dictionary dictionary;
      if (Entries* entries = std::get_if<Entries>(&content)) {
        for (const auto& [key, value] : *entries) dictionary.set(key, value->take());
      }
      return dictionary;
    }
  };

  struct Place {
    std::shared_ptr<Node> root;  // keeps all nodes
    Node* node;
    std::shared_ptr<const typename Format::Options> options;
    CodingPath path;

    [[nodiscard]] Place at(Node& item, CodingKey key) const {
      Place place{root, &item, options, path};
      place.path.push_back(std::move(key));
      return place;
    }
    void setNil() const { set(Format::null()); }
    void setPrimitive(const CodingPrimitive& value) const {
      set(Format::primitive(value, *options, path));
    }
    void set(Tree value) const {
      if (!std::holds_alternative<std::monostate>(node->content)) twice();
      node->content = std::move(value);
    }
    /// Makes the node a container of a kind, unless it is one already.
    template <class Content>
    Content& become() const {
      if (std::holds_alternative<std::monostate>(node->content)) node->content = Content{};
      if (Content* content = std::get_if<Content>(&node->content)) return *content;
      twice();
    }
    [[noreturn]] void twice() const {
      throw EncodingError::invalidValue("A value of another kind was encoded already", path);
    }
    [[nodiscard]] std::shared_ptr<Encoder> encoder() const {
      return std::make_shared<TreeEncoder>(*this);
    }
  };

  explicit TreeEncoder(Place place) : place_(std::move(place)) {}

  [[nodiscard]] CodingPath codingPath() const override { return place_.path; }
  [[nodiscard]] const CodingUserInfo& userInfo() const override { return place_.options->userInfo; }
  [[nodiscard]] std::shared_ptr<KeyedEncodingContainerBase> keyedContainer() override {
    place_.template become<typename Node::Entries>();
    return std::make_shared<Keyed>(place_);
  }
  [[nodiscard]] std::unique_ptr<UnkeyedEncodingContainer> unkeyedContainer() override {
    place_.template become<typename Node::Items>();
    return std::make_unique<Unkeyed>(place_);
  }
  [[nodiscard]] std::unique_ptr<SingleValueEncodingContainer> singleValueContainer() override {
    return std::make_unique<Single>(place_);
  }
  void expectItems(std::size_t count, std::size_t bytesEach) override {
    if constexpr (requires { place_.options->items; }) {
      place_.options->items->add(count, bytesEach);
    }
  }
  bool writeJSON(const JSON& value) override { return write(value); }
  bool writePropertyList(const PropertyList& value) override { return write(value); }

 private:
  template <class Value>
  bool write(const Value& value) {
    if constexpr (std::same_as<Value, Tree>) place_.set(value);
    return std::same_as<Value, Tree>;
  }

  class Keyed final : public KeyedEncodingContainerBase {
   public:
    explicit Keyed(Place place) : place_(std::move(place)) {}

    [[nodiscard]] CodingPath codingPath() const override { return place_.path; }
    void encodeNil(std::string_view key) override { item(key).setNil(); }
    void encodePrimitive(const CodingPrimitive& value, std::string_view key) override {
      item(key).setPrimitive(value);
    }
    [[nodiscard]] std::shared_ptr<Encoder> superEncoder(std::string_view key) override {
      return item(key).encoder();
    }

   private:
    [[nodiscard]] Place item(std::string_view key) const {
      auto& entries = place_.template become<typename Node::Entries>();
      Node& node = *entries.set(std::string{key}, std::make_unique<Node>());
      return place_.at(node, {std::string{key}, std::nullopt});
    }

    Place place_;
  };

  class Unkeyed final : public UnkeyedEncodingContainer {
   public:
    explicit Unkeyed(Place place) : place_(std::move(place)) {}

    [[nodiscard]] CodingPath codingPath() const override { return place_.path; }
    [[nodiscard]] std::size_t count() const override {
      return place_.template become<typename Node::Items>().size();
    }
    void encodeNil() override { item().setNil(); }
    void encodePrimitive(const CodingPrimitive& value) override { item().setPrimitive(value); }
    [[nodiscard]] std::shared_ptr<Encoder> superEncoder() override { return item().encoder(); }

   private:
    [[nodiscard]] Place item() const {
      auto& items = place_.template become<typename Node::Items>();
      const std::size_t index = items.size();
      Node& node = *items.emplace_back(std::make_unique<Node>());
      return place_.at(node, {"Index " + std::to_string(index), index});
    }

    Place place_;
  };

  class Single final : public SingleValueEncodingContainer {
   public:
    explicit Single(Place place) : place_(std::move(place)) {}

    [[nodiscard]] CodingPath codingPath() const override { return place_.path; }
    void encodeNil() override { place_.setNil(); }
    void encodePrimitive(const CodingPrimitive& value) override { place_.setPrimitive(value); }
    [[nodiscard]] std::shared_ptr<Encoder> superEncoder() override { return place_.encoder(); }

   private:
    Place place_;
  };

  Place place_;
};

/// The tree that a type writes through the interface.
template <class Format>
typename Format::Tree encodeTree(const typename Format::Options& options, CodingPath path,
                                 void (*encode)(Encoder&, const void*), const void* value) {
  using Made = TreeEncoder<Format>;
  const auto root = std::make_shared<typename Made::Node>();
  const auto shared = std::make_shared<const typename Format::Options>(options);
  Made encoder(typename Made::Place{root, root.get(), shared, std::move(path)});
  encode(encoder, value);
  return root->take();
}

}  // namespace ombrix::platform::detail
