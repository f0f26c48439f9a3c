// JSON documents, good and damaged, against a plain recursive reader: what is accepted, and every
// value in it. Geometries, through the stream and through the tree, against the same reader: with
// members that come twice, and with positions so short that they stop the program.

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <optional>
#include <random>
#include <string>

#include "Faults/FaultRun.hpp"
#include "OmbrixCore/Extensions/Decoding/DecodingFormat.hpp"
#include "OmbrixCore/Location/GeoJSON.hpp"
#include "OmbrixPlatform/Coding/JSON.hpp"

namespace ombrix {
namespace {

using platform::JSON;
using Random = std::mt19937_64;

/// A value as the plain reader sees it.
struct Plain {
  char kind = 'n';  // n, b, i (number), l, s, a, d
  std::string text;
  double number = 0;
  std::vector<Plain> items;
  std::map<std::string, Plain> members;
};

std::string realText(double number) {
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(), "r%a", number);
  return text.data();
}

/// Numbers that are whole, and fit, are told as whole ones, however they were written.
std::string numberText(const std::string& token) {
  const double number = std::strtod(token.c_str(), nullptr);
  if (token.find_first_of(".eE") == std::string::npos) {
    errno = 0;
    const long long whole = std::strtoll(token.c_str(), nullptr, 10);
    if (errno == 0) return "i" + std::to_string(whole);
    errno = 0;
    const unsigned long long large = std::strtoull(token.c_str(), nullptr, 10);
    if (errno == 0 && token[0] != '-') return "i" + std::to_string(large);
  }
  if (number == std::trunc(number) && number >= -0x1p63 && number < 0x1p63) {
    return "i" + std::to_string(static_cast<long long>(number));
  }
  if (number == std::trunc(number) && number >= 0 && number < 0x1p64) {
    return "i" + std::to_string(static_cast<unsigned long long>(number));
  }
  return realText(number);
}

class PlainReader {
 public:
  /// @param keepsLarge  numbers beyond all doubles are values, of the kind "l"
  explicit PlainReader(std::string_view text, bool keepsLarge = false)
      : text_(text), keepsLarge_(keepsLarge) {}

  std::optional<Plain> document() {
    Plain value;
    if (!isUTF8() || !read(value, 0)) return std::nullopt;
    skipBlanks();
    if (at_ != text_.size()) return std::nullopt;
    return value;
  }

 private:
  [[nodiscard]] char here() const { return at_ < text_.size() ? text_[at_] : '\0'; }
  bool take(std::string_view word) {
    if (!text_.substr(at_).starts_with(word)) return false;
    at_ += word.size();
    return true;
  }
  void skipBlanks() {
    while (at_ < text_.size() && std::string_view(" \t\r\n").contains(text_[at_])) ++at_;
  }
  [[nodiscard]] bool isUTF8() const {
    for (std::size_t i = 0; i < text_.size();) {
      const auto byte = [&](std::size_t k) {
        return i + k < text_.size() ? static_cast<unsigned char>(text_[i + k]) : 0U;
      };
      const unsigned first = byte(0);
      const std::size_t size = first < 0x80 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
      if ((first >= 0x80 && first < 0xC2) || first > 0xF4) return false;
      unsigned scalar = size == 1 ? first : first & (0x7FU >> size);
      for (std::size_t k = 1; k < size; ++k) {
        if ((byte(k) & 0xC0U) != 0x80U) return false;
        scalar = scalar << 6 | (byte(k) & 0x3FU);
      }
      constexpr std::array<unsigned, 5> kLeast = {0, 0, 0x80, 0x800, 0x10000};
      if (scalar < kLeast[size] || scalar > 0x10FFFF || (scalar >= 0xD800 && scalar < 0xE000)) {
        return false;
      }
      i += size;
    }
    return true;
  }

  bool read(Plain& value, int depth) {
    skipBlanks();
    switch (here()) {
      case 'n':
        return take("null");
      case 't':
      case 'f':
        value.kind = 'b';
        value.text = here();
        return take("true") || take("false");
      case '"':
        value.kind = 's';
        return readText(value.text);
      case '[':
        value.kind = 'a';
        return depth < 512 &&
               readList(']', [&] { return read(value.items.emplace_back(), depth + 1); });
      case '{':
        value.kind = 'd';
        return depth < 512 && readList(
                                  '}',
                                  [&] {
                                    std::string key;
                                    skipBlanks();
                                    if (!readText(key)) return false;
                                    skipBlanks();
                                    if (!take(":")) return false;
                                    return read(value.members[key] = Plain{}, depth + 1);
                                  });
      default:
        value.kind = 'i';
        return readNumber(value);
    }
  }

  template <class ReadOne>
  bool readList(char end, ReadOne readOne) {
    ++at_;
    skipBlanks();
    if (here() == end) return ++at_, true;
    while (readOne()) {
      skipBlanks();
      if (here() == end) return ++at_, true;
      if (!take(",")) return false;
    }
    return false;
  }

  bool readDigits() {
    const auto start = at_;
    while (here() >= '0' && here() <= '9') ++at_;
    return at_ != start;
  }

  bool readNumber(Plain& value) {
    const auto start = at_;
    take("-");
    if (!take("0") && !readDigits()) return false;
    if (take(".") && !readDigits()) return false;
    if (here() == 'e' || here() == 'E') {
      ++at_;
      if (here() == '+' || here() == '-') ++at_;
      if (!readDigits()) return false;
    }
    value.text = text_.substr(start, at_ - start);
    value.number = std::strtod(value.text.c_str(), nullptr);
    if (!std::isfinite(value.number)) value.kind = 'l';
    return value.kind == 'i' || keepsLarge_;
  }

  bool readUnit(unsigned& unit) {
    unit = 0;
    for (int i = 0; i < 4; ++i, ++at_) {
      const char c = here();
      const auto digit = std::string_view("0123456789abcdef").find(static_cast<char>(c | 0x20));
      if (digit == std::string_view::npos || (c < '0')) return false;
      unit = unit * 16 + static_cast<unsigned>(digit);
    }
    return true;
  }

  bool readText(std::string& out) {
    if (!take("\"")) return false;
    for (;;) {
      if (at_ >= text_.size() || static_cast<unsigned char>(here()) < 0x20) return false;
      const char c = text_[at_++];
      if (c == '"') return true;
      if (c != '\\') {
        out += c;
        continue;
      }
      const char escape = here();
      ++at_;
      if (escape == 'u') {
        unsigned unit = 0, low = 0;
        if (!readUnit(unit)) return false;
        if (unit >= 0xD800 && unit < 0xE000) {
          if (unit >= 0xDC00 || !take("\\u") || !readUnit(low) || low < 0xDC00 || low > 0xDFFF) {
            return false;
          }
          unit = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
        }
        const auto put = [&](unsigned bits) { out += static_cast<char>(bits); };
        if (unit < 0x80) {
          put(unit);
        } else if (unit < 0x800) {
          put(0xC0 | unit >> 6), put(0x80 | (unit & 63));
        } else if (unit < 0x10000) {
          put(0xE0 | unit >> 12), put(0x80 | (unit >> 6 & 63)), put(0x80 | (unit & 63));
        } else {
          put(0xF0 | unit >> 18), put(0x80 | (unit >> 12 & 63));
          put(0x80 | (unit >> 6 & 63)), put(0x80 | (unit & 63));
        }
        continue;
      }
      constexpr std::string_view kNames = "\"\\/bfnrt", kMeant = "\"\\/\b\f\n\r\t";
      const auto index = kNames.find(escape);
      if (index == kNames.npos) return false;
      out += kMeant[index];
    }
  }

  std::string_view text_;
  bool keepsLarge_;
  std::size_t at_ = 0;
};

std::string told(const Plain& value) {
  std::string all(1, value.kind);
  if (value.kind == 'i') return numberText(value.text);
  if (value.kind == 'b') all += value.text;
  if (value.kind == 's') all += std::to_string(value.text.size()) + ":" + value.text;
  for (const auto& item : value.items) all += told(item) + ",";
  for (const auto& [key, item] : value.members) all += key + "=" + told(item) + ",";
  return all + ";";
}

std::string told(const JSON& value) {
  switch (value.kind()) {
    case JSON::Kind::null:
      return "n;";
    case JSON::Kind::boolean:
      return *value.boolean() ? "bt;" : "bf;";
    case JSON::Kind::number:
      if (const auto whole = value.integer()) return "i" + std::to_string(*whole);
      if (const auto whole = value.unsignedInteger()) return "i" + std::to_string(*whole);
      return realText(*value.real());
    case JSON::Kind::text:
      return "s" + std::to_string(value.string()->size()) + ":" + *value.string() + ";";
    case JSON::Kind::array: {
      std::string all = "a";
      for (const auto& item : *value.array()) all += told(item) + ",";
      return all + ";";
    }
    case JSON::Kind::dictionary:
      break;
  }
  std::map<std::string, std::string> sorted;
  for (const auto& [key, item] : *value.dictionary()) sorted[key] = told(item);
  std::string all = "d";
  for (const auto& [key, item] : sorted) all += key + "=" + item + ",";
  return all + ";";
}

std::string randomNumber(Random& random) {
  constexpr std::string_view kEdges[] = {"0",
                                         "-0",
                                         "1e400",
                                         "1e-400",
                                         "9223372036854775807",
                                         "-9223372036854775808",
                                         "9223372036854775808",
                                         "18446744073709551615",
                                         "18446744073709551616",
                                         "1E3",
                                         "0.1",
                                         "1.0",
                                         "5e-324",
                                         "123456789012345678901234567890"};
  if (random() % 4 == 0) return std::string(kEdges[random() % std::size(kEdges)]);
  std::string text = random() % 2 == 0 ? "-" : "";
  text += std::to_string(random() >> random() % 64);
  if (random() % 2 == 0) text += "." + std::to_string(random() >> random() % 64);
  if (random() % 4 == 0) text += "e" + std::to_string(static_cast<int>(random() % 600) - 300);
  return text;
}

std::string blanks(Random& random) {
  return random() % 6 == 0 ? std::string(1 + random() % 3, " \n\t\r"[random() % 4]) : "";
}

std::string randomText(Random& random) {
  constexpr std::string_view kPieces[] = {
      "a",       "key",  "é", "😀",  "\\n",    "\\\"", "\\\\", "\\u0041", "\\ud83c\\udfbf",
      "\\u00e9", "type", " ", "\\/", "\\u0000"};
  std::string text = "\"";
  for (auto count = random() % 5; count > 0; --count)
    text += kPieces[random() % std::size(kPieces)];
  return text + "\"";
}

std::string randomValue(Random& random, int depth) {
  const auto kind = random() % (depth > 4 ? 5 : 9);
  if (kind == 0) return "null";
  if (kind == 1) return random() % 2 == 0 ? "true" : "false";
  if (kind < 4) return randomNumber(random);
  if (kind == 4) return randomText(random);
  const bool isArray = kind < 7;
  std::string text = isArray ? "[" : "{";
  std::string key;
  for (auto count = random() % 5; count > 0; --count) {
    text += blanks(random);
    if (key.empty() || random() % 3 != 0) key = randomText(random);  // or the same once more
    if (!isArray) text += key + blanks(random) + ":";
    text += blanks(random) + randomValue(random, depth + 1) + blanks(random);
    if (count > 1) text += ',';
  }
  return text + (isArray ? "]" : "}");
}

void damage(std::string& text, Random& random) {
  constexpr std::string_view kBytes = "{}[],:\"\\ 0-.eE+tfn\x01\x80\xC3\xED\xF5u";
  for (auto changes = random() % 3; changes > 0 && !text.empty(); --changes) {
    const auto at = random() % text.size();
    switch (random() % 3) {
      case 0:
        text[at] = kBytes[random() % kBytes.size()];
        break;
      case 1:
        text.erase(at, 1 + random() % 3);
        break;
      default:
        text.insert(at, 1, kBytes[random() % kBytes.size()]);
    }
  }
}

void checkDocument(const std::string& text, faults::Outcomes& outcomes) {
  const auto plain = PlainReader(text).document();
  std::string seen = "refused";
  try {
    seen = told(JSON::parse(text));
  } catch (const platform::JSONError&) {
  }
  const std::string expected = plain ? told(*plain) : "refused";
  outcomes.expect(seen == expected, plain ? "a document read as it is" : "a bad document refused",
                  text.substr(0, 300) + " gives " + seen.substr(0, 200));
}

// Geometries.

std::string randomPosition(Random& random, int depth) {
  std::string text = "[";
  const auto count = depth != 0           ? random() % 4
                     : random() % 60 == 0 ? random() % 2
                                          : 2 + random() % 2;
  for (std::size_t i = 0; i < count; ++i) {
    if (i != 0) text += ',';
    text += depth != 0            ? randomPosition(random, depth - 1)
            : random() % 200 == 0 ? randomValue(random, 5)
                                  : randomNumber(random);
  }
  return text + "]";
}

std::string randomGeometry(Random& random) {
  constexpr std::string_view kTypes[] = {"Point", "LineString", "Polygon", "MultiPoint"};
  std::vector<std::string> members;
  // Members may come twice, also those that another one makes up for.
  for (auto times = random() % 6 == 0 ? 1 + random() % 2 : 1; times > 0; --times) {
    const auto type = random() % 16 == 0 ? 3 : random() % 3;
    const auto depth = random() % 32 == 0 ? random() % 3 : std::min<std::size_t>(type, 2);
    members.push_back("\"type\":\"" + std::string(kTypes[type]) + "\"");
    members.push_back("\"coordinates\":" + randomPosition(random, static_cast<int>(depth)));
    if (random() % 32 == 0) members.pop_back();
    if (random() % 32 == 0) members.push_back("\"coordinates\":" + randomValue(random, 4));
  }
  for (auto more = random() % 3; more > 0; --more) {
    members.push_back("\"other\":" + randomValue(random, 3));
  }
  std::ranges::shuffle(members, random);
  std::string text = "{";
  for (const auto& member : members) text += (text.size() > 1 ? "," : "") + member;
  return text + "}";
}

std::string toldPositions(const CLLocationCoordinate2D& position) {
  return realText(position.longitude) + realText(position.latitude);
}
template <class Item>
std::string toldPositions(const std::vector<Item>& items) {
  std::string all = "[";
  for (const auto& item : items) all += toldPositions(item);
  return all + "]";
}

template <class Decode>
std::string toldGeometry(Decode decode) {
  try {
    const GeoJSONGeometry geometry = decode();
    return geometry.value.visit([](const auto& one) { return toldPositions(one.coordinates); });
  } catch (const platform::DecodingError&) {
    return "refused";
  }
}

/// Reads positions in their order: "refused" for what is none, "stopped" for one that is short,
/// whichever comes first.
std::string positionsOrFailure(const Plain& value, int depth) {
  if (value.kind != 'a') return "refused";
  if (depth > 0) {
    std::string all = "[";
    for (const auto& item : value.items) {
      const std::string one = positionsOrFailure(item, depth - 1);
      if (one == "refused" || one == "stopped") return one;
      all += one;
    }
    return all + "]";
  }
  const auto isNumber = [](const Plain& one) { return one.kind == 'i'; };
  for (std::size_t i = 0; i < 2; ++i) {
    if (i == value.items.size()) return "stopped";
    if (!isNumber(value.items[i])) return "refused";
  }
  if (!std::ranges::all_of(value.items, isNumber)) return "refused";
  return realText(value.items[0].number) + realText(value.items[1].number);
}

/// What the members say, by the plain reader.
std::string expectedGeometry(const Plain& plain) {
  constexpr std::string_view kTypes[] = {"Point", "LineString", "Polygon"};
  const auto type = plain.members.find("type");
  if (type == plain.members.end() || type->second.kind != 's') return "refused";
  const auto at = std::ranges::find(kTypes, type->second.text);
  const auto coordinates = plain.members.find("coordinates");
  if (at == std::end(kTypes) || coordinates == plain.members.end()) return "refused";
  return positionsOrFailure(coordinates->second, static_cast<int>(at - kTypes));
}

/// What a child process tells about a decoding that may stop it.
template <class Decode>
std::string toldOrStopped(Decode decode) {
  const auto child = ::fork();
  if (child == 0) {
    std::freopen("/dev/null", "w", stderr);
    const rlimit noCore{0, 0};
    ::setrlimit(RLIMIT_CORE, &noCore);
    toldGeometry(decode);
    ::_exit(0);
  }
  int status = 0;
  if (child < 0 || ::waitpid(child, &status, 0) != child) return "no child";
  return WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT ? "stopped" : "not stopped";
}

void checkGeometry(const std::string& text, faults::Outcomes& outcomes) {
  const auto plain = PlainReader(text, true).document();
  if (!plain) return outcomes.good("left out: no document");
  const auto bytes = platform::bytesOf(text);
  const platform::JSONDecoder decoder;
  const auto stream = [&] { return decoder.decode<GeoJSONGeometry>(bytes); };
  const auto tree = [&] {
    return platform::decodeFrom<GeoJSONGeometry>(*decoderFor(decoder, bytes));
  };
  const std::string expected = expectedGeometry(*plain);
  const bool stops = expected == "stopped";
  const std::string first = stops ? toldOrStopped(stream) : toldGeometry(stream);
  const std::string second = stops ? toldOrStopped(tree) : toldGeometry(tree);
  outcomes.expect(first == expected && second == expected,
                  stops                   ? "a short position stops the program on both ways"
                  : expected == "refused" ? "what is no geometry refused on both ways"
                                          : "a geometry read the same on both ways",
                  text.substr(0, 300) + " gives " + first + " and " + second);
}

}  // namespace
}  // namespace ombrix

void ombrix::faults::run(const Plan& plan, Outcomes& outcomes) {
  Random random(plan.seed);
  for (std::size_t i = 0; i < plan.rounds(2000, 150'000); ++i) {
    std::string text = blanks(random) + randomValue(random, 0) + blanks(random);
    if (random() % 2 == 0) damage(text, random);
    checkDocument(text, outcomes);
  }
  for (const std::size_t depth : {511U, 512U, 513U, 100'000U}) {
    checkDocument(std::string(depth, '[') + std::string(depth, ']'), outcomes);
  }
  for (std::size_t i = 0; i < plan.rounds(2000, 60'000); ++i) {
    checkGeometry(randomGeometry(random), outcomes);
  }
}
