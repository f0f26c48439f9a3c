#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "OmbrixPlatform/Coding/Codable.hpp"
#include "OmbrixPlatform/Files/URL.hpp"

namespace ombrix::platform {

enum class Piste { blue, red, black };
enum class Snow : std::uint8_t { powder = 1, slush = 7 };

template <>
struct RawValues<Piste> {
  static constexpr std::pair<Piste, std::string_view> table[] = {
      {Piste::blue, "blue"}, {Piste::red, "red"}, {Piste::black, "black"}};
};
template <>
struct RawValues<Snow> {
  static constexpr std::pair<Snow, int> table[] = {{Snow::powder, 1}, {Snow::slush, 7}};
};

/// A type that codes itself through the interface.
struct Point {
  double x = 0;
  double y = 0;

  void encode(Encoder& encoder) const {
    const auto items = encoder.unkeyedContainer();
    items->encode(x);
    items->encode(y);
  }
  static Point decode(Decoder& decoder) {
    const auto items = decoder.unkeyedContainer();
    const double x = items->decode<double>();
    return {x, items->decode<double>()};
  }
  friend bool operator==(const Point&, const Point&) = default;
};

struct Lift {
  std::string name;
  std::optional<double> speed;
  friend bool operator==(const Lift&, const Lift&) = default;

  static constexpr auto kCodingFields =
      codingFields(field("name", &Lift::name), field("speed", &Lift::speed));
};

using Event = std::variant<std::monostate, Lift, std::int64_t>;

template <>
struct CodingCaseNames<Event> {
  static constexpr std::array<std::string_view, 3> kNames = {"rest", "lift", "fall"};
};

/// Every kind of member.
struct Day {
  bool open = false;
  std::int8_t small = 0;
  std::int64_t large = 0;
  std::uint64_t largest = 0;
  float speed = 0;
  double altitude = 0;
  std::string title;
  Date when{};
  Data bytes;
  URL link = *URL::parse("https://ombrix.example/");
  Piste piste = Piste::blue;
  Snow snow = Snow::powder;
  std::optional<int> missing;
  std::vector<Lift> lifts;
  std::vector<bool> flags;
  std::array<int, 2> pair{};
  std::map<std::string, std::vector<int>> scores;
  std::map<int, std::string> numbered;
  std::vector<std::optional<int>> gaps;
  std::vector<Event> events;
  Point point;
  friend bool operator==(const Day&, const Day&) = default;

  static constexpr auto kCodingFields = codingFields(
      field("open", &Day::open), field("small", &Day::small), field("large", &Day::large),
      field("largest", &Day::largest), field("speed", &Day::speed),
      field("altitude", &Day::altitude), field("title", &Day::title), field("when", &Day::when),
      field("bytes", &Day::bytes), field("link", &Day::link), field("piste", &Day::piste),
      field("snow", &Day::snow), field("missing", &Day::missing), field("lifts", &Day::lifts),
      field("flags", &Day::flags), field("pair", &Day::pair), field("scores", &Day::scores),
      field("numbered", &Day::numbered), field("gaps", &Day::gaps), field("events", &Day::events),
      field("point", &Day::point));
};

inline Day sampleDay() {
  Day day;
  day.open = true;
  day.small = -128;
  day.large = INT64_MIN;
  day.largest = UINT64_MAX;
  day.speed = 0.1F;
  day.altitude = 2345.678;
  day.title = "Grüße \"quoted\" \\ / \n \x01 \U0001F3BF";
  day.when = dateSince1970(1'700'000'000.5);
  day.bytes = dataFrom("bytes");
  day.link = *URL::parse("https://ombrix.example/a?b=c%20d");
  day.piste = Piste::black;
  day.snow = Snow::slush;
  day.lifts = {{"Gondola", 6.5}, {"Rope", std::nullopt}};
  day.flags = {true, false, true};
  day.pair = {1, -2};
  day.scores = {{"a", {1, 2}}, {"empty", {}}};
  day.numbered = {{-1, "minus"}, {10, "ten"}};
  day.gaps = {1, std::nullopt, 3};
  day.events = {Event{}, Event{Lift{"Chair", 2}}, Event{std::int64_t{3}}};
  day.point = {1.5, -2};
  return day;
}

}  // namespace ombrix::platform
