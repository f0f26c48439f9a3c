#pragma once

#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <ranges>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <variant>

#include "OmbrixPlatform/Coding/CodingConcepts.hpp"
#include "OmbrixPlatform/Coding/CodingError.hpp"
#include "OmbrixPlatform/Files/URL.hpp"
#include "OmbrixPlatform/Values/RawValue.hpp"

namespace ombrix::platform {

namespace detail {

/// The double with the same shortest decimal form, so that 0.1F is written as 0.1.
double decimalDouble(float value);

template <CodingWriter W, class Map>
void encodeMap(W& writer, const Map& map) {
  using Key = typename Map::key_type;
  writer.beginObject();
  announceItems<Map>(writer);
  {
    CodingPathChain::Step step(writer.pathChain());
    for (const auto& [key, value] : map) {
      if constexpr (std::integral<Key>) {
        char digits[24];
        const auto end = std::to_chars(digits, digits + sizeof digits, key).ptr;
        const std::string_view name{digits, static_cast<std::size_t>(end - digits)};
        step.setKey(name);
        writer.key(name);
        DefaultFieldCodec::encode(writer, value);
      } else {
        step.setKey(codingKeyText(key));
        writer.key(codingKeyText(key));
        DefaultFieldCodec::encode(writer, value);
      }
    }
  }
  writer.endObject();
}

template <CodingWriter W>
void writePlainKey(W& writer, std::string_view name) {
  if constexpr (requires { writer.plainKey(name); }) {
    writer.plainKey(name);
  } else {
    writer.key(name);
  }
}

template <CodingWriter W, class T>
void encodeFields(W& writer, const T& value) {
  writer.beginObject();
  {
    CodingPathChain::Step step(writer.pathChain());
    const auto one = [&]<std::size_t I>(std::integral_constant<std::size_t, I>) {
      constexpr const auto& kField = std::get<I>(CodingFieldsOf<T>::kFields);
      using Field = std::remove_cvref_t<decltype(kField)>;
      using Codec = typename Field::CodecType;
      const auto& member = value.*kField.member;
      step.setKey(kField.name);
      if constexpr (kIsOptional<typename Field::MemberType> && !Field::kHasDefault &&
                    std::same_as<Codec, DefaultFieldCodec>) {
        if (!member) return;
      }
      if constexpr (isPlainName(kField.name)) {
        writePlainKey(writer, kField.name);
      } else {
        writer.key(kField.name);
      }
      Codec::encode(writer, member);
    };
    using Fields = std::remove_cvref_t<decltype(CodingFieldsOf<T>::kFields)>;
    [&]<std::size_t... I>(std::index_sequence<I...>) {
      (one(std::integral_constant<std::size_t, I>{}), ...);
    }(std::make_index_sequence<std::tuple_size_v<Fields>>{});
  }
  writer.endObject();
}

template <CodingWriter W, class V>
void encodeVariant(W& writer, const V& value) {
  if (value.valueless_by_exception()) {
    throw EncodingError::invalidValue("A variant holds no value", writer.codingPath());
  }
  writer.beginObject();
  {
    CodingPathChain::Step step(writer.pathChain());
    step.setKey(CodingCaseNames<V>::kNames[value.index()]);
    writer.key(CodingCaseNames<V>::kNames[value.index()]);
    writer.beginObject();
    std::visit(
        [&]<class T>(const T& held) {
          if constexpr (!std::same_as<T, std::monostate>) {
            writer.key("_0");
            DefaultFieldCodec::encode(writer, held);
          }
        },
        value);
    writer.endObject();
  }
  writer.endObject();
}

}  // namespace detail

/// Writes a value of any type that can be coded.
template <CodingWriter W, class T>
void encodeValue(W& writer, const T& value) {
  if constexpr (requires { Coding<T>::encode(writer, value); }) {
    Coding<T>::encode(writer, value);
  } else if constexpr (HasCodingFields<T>) {
    detail::encodeFields(writer, value);
  } else if constexpr (EncodesItself<T>) {
    writer.writeWith([](Encoder& encoder,
                        const void* object) { static_cast<const T*>(object)->encode(encoder); },
                     &value);
  } else if constexpr (std::same_as<T, bool>) {
    writer.boolean(value);
  } else if constexpr (std::is_enum_v<T>) {
    detail::requireRawValues<T>();
    if constexpr (HasRawValueTable<T>) encodeValue(writer, rawValue(value));
  } else if constexpr (std::signed_integral<T>) {
    writer.integer(value);
  } else if constexpr (std::unsigned_integral<T>) {
    writer.unsignedInteger(value);
  } else if constexpr (std::same_as<T, float>) {
    writer.real(detail::decimalDouble(value));
  } else if constexpr (std::floating_point<T>) {
    writer.real(value);
  } else if constexpr (std::convertible_to<const T&, std::string_view>) {
    writer.text(value);
  } else if constexpr (std::same_as<T, Date>) {
    writer.date(value);
  } else if constexpr (std::same_as<T, Data>) {
    writer.data(value);
  } else if constexpr (std::same_as<T, URL>) {
    writer.text(value.absoluteString());
  } else if constexpr (detail::kIsOptional<T>) {
    if (value)
      encodeValue(writer, *value);
    else
      writer.null();
  } else if constexpr (HasCodingCaseNames<T>) {
    detail::encodeVariant(writer, value);
  } else if constexpr (detail::MapLike<T>) {
    detail::encodeMap(writer, value);
  } else if constexpr (std::ranges::range<T>) {
    writer.beginArray();
    detail::announceItems<T>(writer);
    {
      CodingPathChain::Step step(writer.pathChain());
      std::size_t index = 0;
      for (const auto& item : value) {
        step.setIndex(index++);
        encodeValue(writer, static_cast<const typename T::value_type&>(item));
      }
    }
    writer.endArray();
  } else {
    static_assert(detail::kUnsupported<T>, "give the type kCodingFields, or encode and decode");
  }
}

template <class Writer, class T>
void DefaultFieldCodec::encode(Writer& writer, const T& value) {
  encodeValue(writer, value);
}

}  // namespace ombrix::platform
