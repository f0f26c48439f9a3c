#pragma once

#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
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

template <CodingReader R, class T>
void decodeFields(R& reader, T& out) {
  constexpr const auto& kFields = CodingFieldsOf<T>::kFields;
  constexpr std::size_t kCount = std::tuple_size_v<std::remove_cvref_t<decltype(kFields)>>;
  constexpr auto kIndices = std::make_index_sequence<kCount>{};
  std::uint64_t seen = 0;
  reader.beginObject();
  {
    CodingPathChain::Step step(reader.pathChain());
    if constexpr (TriesKeys<R>) {
      const auto inOrder = [&]<std::size_t I>(std::integral_constant<std::size_t, I>) {
        constexpr const auto& kField = std::get<I>(kFields);
        if constexpr (isPlainName(kField.name)) {
          if (!reader.tryKey(kField.name)) return;
          step.setKey(kField.name);
          std::remove_cvref_t<decltype(kField)>::CodecType::decode(reader, out.*kField.member);
          seen |= std::uint64_t{1} << I;
        }
      };
      [&]<std::size_t... I>(std::index_sequence<I...>) {
        (inOrder(std::integral_constant<std::size_t, I>{}), ...);
      }(kIndices);
    }
    std::string_view key;
    bool more = reader.nextKey(key);
    const auto take = [&]<std::size_t I>(std::integral_constant<std::size_t, I>) {
      constexpr const auto& kField = std::get<I>(kFields);
      if (key != kField.name) return false;
      if ((seen >> I & 1) != 0) startOver(reader);
      step.setKey(kField.name);
      std::remove_cvref_t<decltype(kField)>::CodecType::decode(reader, out.*kField.member);
      seen |= std::uint64_t{1} << I;
      more = reader.nextKey(key);
      return true;
    };
    // Keys usually come in the order of the fields: one comparison each. A key out of order is
    // searched for among all fields, and the order is followed again from there.
    [&]<std::size_t... I>(std::index_sequence<I...>) {
      while (more) {
        (static_cast<void>(more && take(std::integral_constant<std::size_t, I>{})), ...);
        if (!more) break;
        if (!(take(std::integral_constant<std::size_t, I>{}) || ...)) {
          reader.skip();
          more = reader.nextKey(key);
        }
      }
    }(kIndices);
  }
  constexpr std::uint64_t kAll = kCount == 0 ? 0 : ~std::uint64_t{0} >> (64 - kCount);
  if (seen == kAll) [[likely]]
    return;
  [&]<std::size_t... I>(std::index_sequence<I...>) {
    const auto require = [&]<class Field>(const Field& field, std::size_t index) {
      using Member = typename Field::MemberType;
      if ((seen >> index & 1) != 0) return;
      if constexpr (Field::kHasDefault) {
        out.*field.member = static_cast<Member>(field.missing);
      } else if constexpr (!kIsOptional<Member>) {
        throw DecodingError::keyNotFound(field.name, reader.codingPath());
      }
    };
    (require(std::get<I>(kFields), I), ...);
  }(kIndices);
}

template <class T, CodingReader R>
T decodeNew(R& reader) {
  if constexpr (DecodesItself<T> && !requires(T& out) { Coding<T>::decode(reader, out); }) {
    return T::decode(*reader.decoder());
  } else if constexpr (std::same_as<T, URL>) {
    const std::string_view text = reader.readText();
    if (auto url = URL::parse(text)) return *std::move(url);
    throw DecodingError::dataCorrupted("Not a URL: " + textByLength(text), reader.codingPath());
  } else {
    T value{};
    DefaultFieldCodec::decode(reader, value);
    return value;
  }
}

template <CodingReader R, class Map>
void decodeMap(R& reader, Map& out) {
  using Key = typename Map::key_type;
  out.clear();
  reader.beginObject();
  expectItems<typename Map::value_type>(reader, out);
  std::string name;  // lives as long as the step: an error in the next key names this one
  CodingPathChain::Step step(reader.pathChain());
  std::string_view next;
  BucketLimit buckets;
  const auto put = [&](Key key) {
    const auto before = out.size();
    if constexpr (kIsHashed<Map>) buckets.check(reader, out, key);
    out.insert_or_assign(std::move(key), decodeNew<typename Map::mapped_type>(reader));
    if (out.size() == before) startOver(reader);
  };
  while (reader.nextKey(next)) {
    name = next;
    step.setEntry(name);
    if constexpr (std::integral<Key>) {
      Key key{};
      const auto parsed = std::from_chars(name.data(), name.data() + name.size(), key);
      if (parsed.ec != std::errc{} || parsed.ptr != name.data() + name.size()) {
        throw DecodingError::dataCorrupted("A key is not an integer that fits",
                                           reader.codingPath());
      }
      put(key);
    } else if constexpr (std::is_enum_v<Key>) {
      requireRawValues<Key>();
      if constexpr (HasRawValueTable<Key>) {
        const auto key = fromRawValue<Key>(std::string_view{name});
        if (!key) throw DecodingError::dataCorrupted("A key has no meaning", reader.codingPath());
        put(*key);
      }
    } else {
      put(Key{name});
    }
  }
}

template <CodingReader R, class T>
void decodeItems(R& reader, T& out) {
  reader.beginArray();
  CodingPathChain::Step step(reader.pathChain());
  std::size_t index = 0;
  if constexpr (kIsArray<T>) {
    for (auto& item : out) {
      step.setIndex(index++);
      if (!reader.nextItem()) {
        throw DecodingError::valueNotFound("a further item", reader.codingPath());
      }
      DefaultFieldCodec::decode(reader, item);
    }
    step.setIndex(index);
    if (reader.nextItem()) {
      throw DecodingError::dataCorrupted("An array has more items than fit", reader.codingPath());
    }
  } else {
    using Item = typename T::value_type;
    out.clear();
    expectItems<Item>(reader, out);
    BucketLimit buckets;
    for (step.setIndex(0); reader.nextItem(); step.setIndex(++index)) {
      if constexpr (kIsHashed<T>) {
        buckets.check(reader, out, *out.insert(decodeNew<Item>(reader)).first);
      } else if constexpr (!Growing<T>) {
        out.insert(decodeNew<Item>(reader));
      } else if constexpr (std::is_default_constructible_v<Item> && !std::same_as<Item, bool>) {
        DefaultFieldCodec::decode(reader, out.emplace_back());
      } else {
        out.push_back(decodeNew<Item>(reader));
      }
    }
  }
}

template <CodingReader R, class V>
void decodeVariant(R& reader, V& out) {
  constexpr const auto& kNames = CodingCaseNames<V>::kNames;
  static_assert(kNames.size() == std::variant_size_v<V>);
  reader.beginObject();
  CodingPathChain::Step step(reader.pathChain());
  std::string_view key;
  std::size_t found = 0;
  while (reader.nextKey(key)) {
    const auto alternative = [&]<std::size_t I>(std::integral_constant<std::size_t, I>) {
      if (key != kNames[I]) return false;
      using T = std::variant_alternative_t<I, V>;
      step.setKey(kNames[I]);
      bool hasValue = std::same_as<T, std::monostate>;
      reader.beginObject();
      while (reader.nextKey(key)) {
        if constexpr (!std::same_as<T, std::monostate>) {
          if (key == "_0") {
            out.template emplace<I>(decodeNew<T>(reader));
            hasValue = true;
            continue;
          }
        }
        reader.skip();
      }
      if (!hasValue) throw DecodingError::keyNotFound("_0", reader.codingPath());
      if constexpr (std::same_as<T, std::monostate>) out.template emplace<I>();
      return true;
    };
    const bool known = [&]<std::size_t... I>(std::index_sequence<I...>) {
      return (alternative(std::integral_constant<std::size_t, I>{}) || ...);
    }(std::make_index_sequence<std::variant_size_v<V>>{});
    if (known)
      ++found;
    else
      reader.skip();
  }
  if (found != 1) {
    throw DecodingError::dataCorrupted("Not exactly one of the known cases is named",
                                       reader.codingPath());
  }
}

template <CodingReader R, class T>
void decodeEnumeration(R& reader, T& out) {
  const auto take = [&](const auto& raw, const auto& describe) {
    const auto value = fromRawValue<T>(raw);
    if (value) return static_cast<void>(out = *value);
    throw DecodingError::dataCorrupted("No case has the raw value (" + describe(raw) + ")",
                                       reader.codingPath());
  };
  if constexpr (std::integral<decltype(rawValue(T{}))>)
    take(reader.readInteger(), [](std::int64_t) { return std::string("an integer"); });
  else
    take(reader.readText(), textByLength);
}

template <CodingReader R, std::integral T>
void decodeInteger(R& reader, T& out) {
  const auto value = [&] {
    if constexpr (std::is_signed_v<T>)
      return reader.readInteger();
    else
      return reader.readUnsignedInteger();
  }();
  if (!std::in_range<T>(value)) {
    throw DecodingError::dataCorrupted("The number does not fit", reader.codingPath());
  }
  out = static_cast<T>(value);
}

}  // namespace detail

/// Reads a value of any type that can be coded and overwrites `out` with it. When it throws, `out`
/// holds the parts read so far.
template <CodingReader R, class T>
void decodeValue(R& reader, T& out) {
  if constexpr (requires { Coding<T>::decode(reader, out); }) {
    Coding<T>::decode(reader, out);
  } else if constexpr (HasCodingFields<T>) {
    detail::decodeFields(reader, out);
  } else if constexpr (DecodesItself<T>) {
    out = T::decode(*reader.decoder());
  } else if constexpr (std::same_as<T, bool>) {
    out = reader.readBool();
  } else if constexpr (std::is_enum_v<T>) {
    detail::requireRawValues<T>();
    if constexpr (HasRawValueTable<T>) detail::decodeEnumeration(reader, out);
  } else if constexpr (std::integral<T>) {
    detail::decodeInteger(reader, out);
  } else if constexpr (std::floating_point<T>) {
    out = static_cast<T>(reader.readReal());
  } else if constexpr (std::same_as<T, std::string>) {
    out = reader.readText();
  } else if constexpr (std::same_as<T, Date>) {
    out = reader.readDate();
  } else if constexpr (std::same_as<T, Data>) {
    out = reader.readData();
  } else if constexpr (std::same_as<T, URL>) {
    out = detail::decodeNew<T>(reader);
  } else if constexpr (detail::kIsOptional<T>) {
    if (reader.readNull())
      out.reset();
    else
      out.emplace(detail::decodeNew<typename T::value_type>(reader));
  } else if constexpr (HasCodingCaseNames<T>) {
    detail::decodeVariant(reader, out);
  } else if constexpr (detail::MapLike<T>) {
    detail::decodeMap(reader, out);
  } else if constexpr (detail::kIsArray<T> || detail::Growing<T> || detail::SetLike<T>) {
    detail::decodeItems(reader, out);
  } else {
    static_assert(detail::kUnsupported<T>, "give the type kCodingFields, or encode and decode");
  }
}

template <class Reader, class T>
void DefaultFieldCodec::decode(Reader& reader, T& out) {
  decodeValue(reader, out);
}

}  // namespace ombrix::platform
