#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <variant>

namespace ombrix::platform {

/// The default codec of a field: its type decides.
struct DefaultFieldCodec {
  template <class Writer, class T>
  static void encode(Writer& writer, const T& value);
  template <class Reader, class T>
  static void decode(Reader& reader, T& out);
};

/// Marks a field without a default.
struct NoFieldDefault {};

/// One coded member of a type.
template <class Owner, class Member, class Codec, class Default = NoFieldDefault>
struct CodingField {
  std::string_view name;
  Member Owner::* member;
  [[no_unique_address]] Default missing{};  ///< the member's value where its key is missing
  using MemberType = Member;
  using CodecType = Codec;
  static constexpr bool kHasDefault = !std::is_same_v<Default, NoFieldDefault>;
};

/// Names a member for `codingFields`. A codec of the caller's own is an empty struct with static
/// templates `encode(Writer&, const Member&)` and `decode(Reader&, Member&)`, see `CodingReader`.
template <class Codec = DefaultFieldCodec, class Owner, class Member>
constexpr CodingField<Owner, Member, Codec> field(std::string_view name, Member Owner::* member) {
  return {name, member};
}

/// The same for a field that was added later: where its key is missing, as in all older data, the
/// member becomes `missing` and nothing fails.
///
/// Only a missing key does that. Null stays an error (for an optional member it means none), and so
/// does a value that cannot be decoded: damaged data must not pass for old data. An empty optional
/// with a default is written as null, since a missing key would bring the default back.
///
/// @param missing  a constant that the member can be made of; for a text a literal
template <class Codec = DefaultFieldCodec, class Owner, class Member, class Default>
  requires std::is_constructible_v<Member, const Default&>
constexpr CodingField<Owner, Member, Codec, Default> field(std::string_view name,
                                                           Member Owner::* member,
                                                           Default missing) {
  return {name, member, missing};
}

/// The coded members of a type, in the order they are written:
///
///     struct Lift {
///       std::string name;
///       std::optional<double> speed;
///       static constexpr auto kCodingFields =
///           codingFields(field("name", &Lift::name), field("speed", &Lift::speed));
///     };
///
/// It serves both directions and all formats. An optional member is left out when it is empty, and
/// may be missing or null when read; one with a default may be missing; every other one is
/// required. So a field that is added to a stored type needs a default or an optional. Unknown keys
/// are skipped, and of equal keys the last counts, even if the values of the others are invalid.
template <class... Fields>
constexpr std::tuple<Fields...> codingFields(Fields... fields) {
  static_assert(sizeof...(Fields) <= 64, "a type may have 64 coded fields");
  return {fields...};
}

/// The fields of a type. For a type that cannot be given `kCodingFields`, specialise this with
/// `static constexpr auto kFields = codingFields(...)`.
template <class T>
struct CodingFieldsOf {};
template <class T>
  requires requires { T::kCodingFields; }
struct CodingFieldsOf<T> {
  static constexpr const auto& kFields = T::kCodingFields;
};

template <class T>
concept HasCodingFields = requires { CodingFieldsOf<T>::kFields; };

/// The names of a `std::variant`'s alternatives: specialise with
/// `static constexpr std::array<std::string_view, N> kNames`. A value is coded as a dictionary with
/// the one key that names the alternative; below it the value under "_0", or nothing for
/// `std::monostate`.
template <class Variant>
struct CodingCaseNames {};

template <class T>
concept HasCodingCaseNames = requires { CodingCaseNames<T>::kNames; };

/// A type's own coding code at the full speed of a format: specialise with static templates
/// `encode(Writer&, const T&)` and `decode(Reader&, T&)`, see `CodingReader`.
///
/// The plainer way, for types coded rarely, is a member `void encode(Encoder&) const` and a static
/// member `T decode(Decoder&)`.
template <class T>
struct Coding {};

}  // namespace ombrix::platform
