#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>

#include "OmbrixPlatform/Coding/CodableDecoding.hpp"
#include "OmbrixPlatform/Coding/CodableEncoding.hpp"
#include "OmbrixPlatform/Coding/CodingConcepts.hpp"
#include "OmbrixPlatform/Coding/Decoder.hpp"
#include "OmbrixPlatform/Coding/Encoder.hpp"

namespace ombrix::platform {

static_assert(CodingReader<DecoderReader> && CodingWriter<EncoderWriter>);

namespace detail {

/// What a value takes in memory, which may stand in a container that grows by doubling.
template <class T>
inline constexpr std::size_t kMemoryOf = 2 * sizeof(T);

}  // namespace detail

/// Decodes a type from the interface, which is told how much memory that takes.
template <class T>
T decodeFrom(Decoder& decoder) {
  static_cast<void>(decoder.expectItems(1, detail::kMemoryOf<T>));
  DecoderReader reader(decoder);
  return detail::decodeNew<T>(reader);
}

/// Encodes a type to the interface.
template <class T>
void encodeTo(Encoder& encoder, const T& value) {
  encoder.expectItems(1, detail::kMemoryOf<T>);
  EncoderWriter writer(encoder);
  encodeValue(writer, value);
}

namespace detail {

/// The kind whose alternative holds a type; none for types that are put together of others.
template <class T>
constexpr std::optional<CodingPrimitiveKind> primitiveKindOf() {
  if constexpr (std::same_as<T, bool>)
    return CodingPrimitiveKind::boolean;
  else if constexpr (std::same_as<T, std::int64_t>)
    return CodingPrimitiveKind::integer;
  else if constexpr (std::same_as<T, std::uint64_t>)
    return CodingPrimitiveKind::unsignedInteger;
  else if constexpr (std::same_as<T, double>)
    return CodingPrimitiveKind::real;
  else if constexpr (std::same_as<T, std::string>)
    return CodingPrimitiveKind::text;
  else if constexpr (std::same_as<T, Data>)
    return CodingPrimitiveKind::data;
  else if constexpr (std::same_as<T, Date>)
    return CodingPrimitiveKind::date;
  else
    return std::nullopt;
}

}  // namespace detail

template <class T>
T UnkeyedDecodingContainer::decode() {
  constexpr auto kKind = detail::primitiveKindOf<T>();
  if constexpr (kKind)
    return std::get<T>(decodePrimitive(*kKind));
  else
    return decodeFrom<T>(*superDecoder());
}

template <class T>
std::optional<T> UnkeyedDecodingContainer::decodeIfPresent() {
  if (isAtEnd() || decodeNil()) return std::nullopt;
  return decode<T>();
}

template <class T>
T SingleValueDecodingContainer::decode() const {
  constexpr auto kKind = detail::primitiveKindOf<T>();
  if constexpr (kKind)
    return std::get<T>(decodePrimitive(*kKind));
  else
    return decodeFrom<T>(*superDecoder());
}

template <CodingKeyType Key>
template <class T>
T KeyedDecodingContainer<Key>::decode(const Key& key) const {
  constexpr auto kKind = detail::primitiveKindOf<T>();
  if constexpr (kKind)
    return std::get<T>(base_->decodePrimitive(*kKind, codingKeyText(key)));
  else
    return decodeFrom<T>(*superDecoder(key));
}

template <class T>
void UnkeyedEncodingContainer::encode(const T& value) {
  if constexpr (detail::primitiveKindOf<T>())
    encodePrimitive(value);
  else
    encodeTo(*superEncoder(), value);
}

template <class T>
void SingleValueEncodingContainer::encode(const T& value) {
  if constexpr (detail::primitiveKindOf<T>())
    encodePrimitive(value);
  else
    encodeTo(*superEncoder(), value);
}

template <CodingKeyType Key>
template <class T>
void KeyedEncodingContainer<Key>::encode(const T& value, const Key& key) {
  if constexpr (detail::primitiveKindOf<T>())
    base_->encodePrimitive(value, codingKeyText(key));
  else
    encodeTo(*superEncoder(key), value);
}

}  // namespace ombrix::platform
