#pragma once

#include <cstdint>
#include <cstdlib>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "OmbrixPlatform/Coding/Codable.hpp"

namespace ombrix::fuzz {

/// A type whose fields a fuzzer finds quickly.
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

  static constexpr auto kCodingFields =
      platform::codingFields(platform::field("t", &Node::t), platform::field("r", &Node::r),
                             platform::field("i", &Node::i), platform::field("u", &Node::u),
                             platform::field("b", &Node::b), platform::field("d", &Node::d),
                             platform::field("x", &Node::x), platform::field("n", &Node::n),
                             platform::field("m", &Node::m));
};

/// The same decoded through the interface.
struct InterfaceNode {
  Node node;
  static InterfaceNode decode(platform::Decoder& decoder) {
    return {platform::decodeFrom<Node>(decoder)};
  }
};

/// The fast path and the interface must agree about bytes without repeated keys.
template <class DecoderType, class EncoderType>
void checkPathsAgree(platform::DataView bytes) {
  const auto encoded = [&]<class T>(T*) -> std::optional<platform::Data> {
    try {
      const T value = DecoderType{}.template decode<T>(bytes);
      if constexpr (std::same_as<T, Node>)
        return EncoderType{}.encode(value);
      else
        return EncoderType{}.encode(value.node);
    } catch (const platform::DecodingError&) {
      return std::nullopt;
    }
  };
  if (encoded(static_cast<Node*>(nullptr)) != encoded(static_cast<InterfaceNode*>(nullptr))) {
    std::abort();
  }
}

}  // namespace ombrix::fuzz
