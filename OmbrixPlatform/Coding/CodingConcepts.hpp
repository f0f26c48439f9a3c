#pragma once

#include <array>
#include <concepts>
#include <cstdint>
#include <memory>
#include <optional>
#include <ranges>
#include <string>
#include <string_view>

#include "OmbrixPlatform/Coding/CodingError.hpp"
#include "OmbrixPlatform/Coding/CodingFields.hpp"
#include "OmbrixPlatform/Coding/CodingPath.hpp"
#include "OmbrixPlatform/Values/Data.hpp"
#include "OmbrixPlatform/Values/Date.hpp"
#include "OmbrixPlatform/Values/RawValue.hpp"

namespace ombrix::platform {

class Decoder;
class Encoder;

/// A reader of a format in one pass, value after value: the coders' fast path, for which all
/// decoding of types is written once. `DecoderReader` makes one of any `Decoder`.
///
/// A `read…` takes the next value; `readNull` takes it only if it is null. An object:
/// `beginObject`, then a value (or `skip`) after each `nextKey` that gives true; false closes the
/// object. Arrays go the same way with `nextItem`. A text is valid until the next operation.
/// `peekText` looks up a text in the next object without taking it. Everything throws
/// `DecodingError`.
///
/// Of equal keys the last counts, which a reader in one pass cannot know beforehand: a type's own
/// code that meets a key again must call `startOver`.
template <class R>
concept CodingReader = requires(R& reader, std::string_view& key) {
  { reader.readNull() } -> std::same_as<bool>;
  { reader.readBool() } -> std::same_as<bool>;
  { reader.readInteger() } -> std::same_as<std::int64_t>;
  { reader.readUnsignedInteger() } -> std::same_as<std::uint64_t>;
  { reader.readReal() } -> std::same_as<double>;
  { reader.readText() } -> std::same_as<std::string_view>;
  { reader.readData() } -> std::same_as<Data>;
  { reader.readDate() } -> std::same_as<Date>;
  reader.beginObject();
  { reader.nextKey(key) } -> std::same_as<bool>;
  reader.beginArray();
  { reader.nextItem() } -> std::same_as<bool>;
  reader.skip();
  { reader.peekText(key) } -> std::same_as<std::optional<std::string>>;
  { reader.decoder() } -> std::same_as<std::shared_ptr<Decoder>>;
  { reader.pathChain() } -> std::same_as<CodingPathChain&>;
  { reader.codingPath() } -> std::same_as<CodingPath>;
};

/// The counterpart that writes: in an object `key` comes before each value.
template <class W>
concept CodingWriter = requires(W& writer, std::string_view text, DataView data, Date date) {
  writer.null();
  writer.boolean(true);
  writer.integer(std::int64_t{});
  writer.unsignedInteger(std::uint64_t{});
  writer.real(double{});
  writer.text(text);
  writer.data(data);
  writer.date(date);
  writer.beginObject();
  writer.key(text);
  writer.endObject();
  writer.beginArray();
  writer.endArray();
  { writer.pathChain() } -> std::same_as<CodingPathChain&>;
  { writer.codingPath() } -> std::same_as<CodingPath>;
};

/// Called where a value cannot be judged in one pass: a key comes again, or the program is about to
/// stop. Returns for `DecoderReader`, which knows the whole document. Other readers throw a
/// `DecodingError`, and their decoder decodes once more, through a `DecoderReader`.
template <class R>
void startOver(const R& reader) {
  if constexpr (requires { reader.startOver(); }) reader.startOver();
}

/// A type that decodes itself through the interface.
template <class T>
concept DecodesItself = requires(Decoder& decoder) {
  { T::decode(decoder) } -> std::same_as<T>;
};
/// A type that encodes itself through the interface.
template <class T>
concept EncodesItself = requires(const T& value, Encoder& encoder) { value.encode(encoder); };

namespace detail {

template <class T>
inline constexpr bool kIsOptional = false;
template <class T>
inline constexpr bool kIsOptional<std::optional<T>> = true;
template <class T>
inline constexpr bool kIsArray = false;
template <class T, std::size_t N>
inline constexpr bool kIsArray<std::array<T, N>> = true;

template <class T>
concept MapLike = requires { typename T::mapped_type; } && std::ranges::range<T>;
template <class T>
concept Growing = std::ranges::range<T> && requires(T& items) { items.emplace_back(); };
template <class T>
concept SetLike = std::ranges::range<T> && requires { typename T::key_type; };

/// The memory that an item of a container takes, including what trees and tables add to it.
template <class Container>
inline constexpr std::size_t kItemBytes =
    sizeof(typename Container::value_type) +
    (requires(Container& out) { out.reserve(0); } && Growing<Container> ? 0 : 64);

/// Tells a reader, if it asks, how much memory the items of the container that has begun will take,
/// and reserves room for them in `out`.
template <class Item, CodingReader R, class T>
void expectItems(R& reader, T& out) {
  if constexpr (requires { reader.expectItems(sizeof(Item)); }) {
    const std::size_t count = reader.expectItems(kItemBytes<T>);
    if constexpr (requires { out.reserve(0); } && Growing<T>) out.reserve(count);
  }
}

/// A table of hashes in which each key is once.
template <class Container>
inline constexpr bool kIsHashed = requires(Container& out, typename Container::key_type key) {
  out.bucket_size(out.bucket(key));
  typename Container::insert_return_type;
};

/// Stops reading a hash table most of whose keys share buckets, as keys chosen by an attacker do:
/// inserting them takes time by the square of their number.
class BucketLimit {
 public:
  template <CodingReader R, class Container>
  void check(R& reader, const Container& out, const typename Container::key_type& key) {
    if (out.empty()) return;
    ++keys_;  // with those that come again
    compared_ += out.bucket_size(out.bucket(key));
    if (compared_ <= kUsual * (keys_ + kUsual)) return;
    throw DecodingError::tooLarge("Too many keys share a bucket of a hash table",
                                  reader.codingPath());
  }

 private:
  static constexpr std::size_t kUsual = 256;  // far above what any good hash gives
  std::size_t keys_ = 0, compared_ = 0;
};

/// Tells a writer, if it asks, how much memory the items of the container that has begun take.
template <class Container, CodingWriter W>
void announceItems(W& writer) {
  if constexpr (requires { writer.expectItems(std::size_t{}); }) {
    writer.expectItems(kItemBytes<Container>);
  }
}

/// A reader that can compare the next key with a name before it takes it.
template <class R>
concept TriesKeys = requires(R& reader, std::string_view name) { reader.tryKey(name); };

/// Whether a name of a field is written as it is in every format.
consteval bool isPlainName(std::string_view name) {
  for (const char c : name) {
    if (c < ' ' || c > '~' || c == '"' || c == '\\') return false;
  }
  return true;
}

template <class T>
inline constexpr bool kUnsupported = false;

/// For enumerations that are coded: one that lacks its raw values does not compile.
template <class E>
constexpr void requireRawValues() {
  static_assert(HasRawValueTable<E>,
                "give the enumeration its raw values: template <> struct "
                "ombrix::platform::RawValues<E> { static constexpr std::pair<E, std::string_view> "
                "table[] = {{E::first, \"first\"}, {E::second, \"second\"}}; };");
}

}  // namespace detail

}  // namespace ombrix::platform
