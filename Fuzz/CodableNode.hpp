#pragma once

#include <array>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "OmbrixPlatform/Coding/Codable.hpp"

namespace ombrix::fuzz {

/// A type that decodes itself.
struct Pair {
  double first = 0;
  double second = 0;

  void encode(platform::Encoder& encoder) const {
    const auto items = encoder.unkeyedContainer();
    items->encode(first);
    items->encode(second);
  }
  static Pair decode(platform::Decoder& decoder) {
    const auto items = decoder.unkeyedContainer();
    const double first = items->decode<double>();
    return {first, items->decode<double>()};
  }
};

using Choice = std::variant<std::monostate, std::int64_t, std::string>;

}  // namespace ombrix::fuzz

template <>
struct ombrix::platform::CodingCaseNames<ombrix::fuzz::Choice> {
  static constexpr std::array<std::string_view, 3> kNames = {"a", "b", "c"};
};

namespace ombrix::fuzz {

/// A type whose fields a fuzzer finds quickly.
/// @tparam Tree Any value of the format.
template <class Tree>
struct Node {
  std::optional<std::string> t;
  std::optional<double> r;
  std::optional<std::int16_t> i;
  std::optional<std::uint64_t> u;
  std::optional<bool> b;
  std::optional<platform::Date> d;
  std::optional<platform::Data> x;
  std::vector<Node> n;
  std::optional<std::map<std::string, std::int64_t>> m;
  std::optional<std::map<int, std::optional<bool>>> k;
  std::optional<Choice> c;
  std::optional<Pair> p;
  std::optional<Tree> a;
  int z = 0;

  static constexpr auto kCodingFields =
      platform::codingFields(platform::field("t", &Node::t), platform::field("r", &Node::r),
                             platform::field("i", &Node::i), platform::field("u", &Node::u),
                             platform::field("b", &Node::b), platform::field("d", &Node::d),
                             platform::field("x", &Node::x), platform::field("n", &Node::n),
                             platform::field("m", &Node::m), platform::field("k", &Node::k),
                             platform::field("c", &Node::c), platform::field("p", &Node::p),
                             platform::field("a", &Node::a), platform::field("z", &Node::z, 7));
};

/// The same decoded through the interface.
template <class Tree>
struct InterfaceNode {
  Node<Tree> node;
  static InterfaceNode decode(platform::Decoder& decoder) {
    return {platform::decodeFrom<Node<Tree>>(decoder)};
  }
};

/// The fast path and the interface must agree about any bytes, also about what is wrong with them.
/// Only how far references may blow a file up is counted differently.
/// @return the value in the encoder's form, empty for an error
template <class DecoderType, class EncoderType, class Tree>
std::string checkPathsAgree(platform::DataView bytes) {
  bool isRefused = false;
  bool isTooLarge = false;
  const auto encoded = [&]<class T>(T*) -> std::string {
    Node<Tree> node;
    try {
      if constexpr (std::same_as<T, Node<Tree>>)
        node = DecoderType{}.template decode<T>(bytes);
      else
        node = DecoderType{}.template decode<T>(bytes).node;
    } catch (const platform::DecodingError& error) {
      isRefused = true;
      const std::string what = error.what();
      isTooLarge |= what.find("out of proportion") != what.npos;
      return what;
    }
    try {
      return std::string(platform::textOf(EncoderType{}.encode(node)));
    } catch (const platform::EncodingError& error) {
      return error.what();
    }
  };
  const std::string fast = encoded(static_cast<Node<Tree>*>(nullptr));
  if (fast != encoded(static_cast<InterfaceNode<Tree>*>(nullptr)) && !isTooLarge) std::abort();
  return isRefused ? std::string{} : fast;
}

}  // namespace ombrix::fuzz
