// JSON documents, good and damaged, against another library: what is accepted, and every value in
// it.

#include <array>
#include <cmath>
#include <cstdio>
#include <map>
#include <nlohmann/json.hpp>
#include <random>
#include <string>

#include "Faults/FaultRun.hpp"
#include "OmbrixPlatform/Coding/JSON.hpp"
#include "Tests/Support/Items.hpp"

namespace ombrix {
namespace {

using platform::JSON;
using Random = std::mt19937_64;

/// Numbers that are whole, and fit, are told as whole ones, however they were written.
std::string toldNumber(double number) {
  const bool isWhole = number == std::trunc(number);
  if (isWhole && number >= -0x1p63 && number < 0x1p63) {
    return "i" + std::to_string(static_cast<long long>(number));
  }
  if (isWhole && number >= 0 && number < 0x1p64) {
    return "i" + std::to_string(static_cast<unsigned long long>(number));
  }
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(), "r%a", number);
  return text.data();
}

std::string toldText(const std::string& text) {
  return "s" + std::to_string(text.size()) + ":" + text + ";";
}

std::string told(const nlohmann::json& value) {
  if (value.is_null()) return "n;";
  if (value.is_boolean()) return value.get<bool>() ? "bt;" : "bf;";
  if (value.is_number_unsigned()) return "i" + std::to_string(value.get<std::uint64_t>());
  if (value.is_number_integer()) return "i" + std::to_string(value.get<std::int64_t>());
  if (value.is_number()) return toldNumber(value.get<double>());
  if (value.is_string()) return toldText(value.get<std::string>());
  std::string all = value.is_array() ? "a" : "d";
  for (const auto& [key, item] : value.items()) {
    all += (value.is_array() ? "" : key + "=") + told(item) + ",";
  }
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
      return toldNumber(*value.real());
    case JSON::Kind::text:
      return toldText(*value.string());
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
  static const auto kEdges = testing::itemsOf(
      "0 -0 1e400 1e-400 9223372036854775807 -9223372036854775808 9223372036854775808 "
      "18446744073709551615 18446744073709551616 1E3 0.1 1.0 5e-324 123456789012345678901234567890",
      ' ');
  if (random() % 4 == 0) return kEdges[random() % kEdges.size()];
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

void check(const std::string& text, faults::Outcomes& outcomes) {
  std::string expected = "refused", seen = "refused";
  try {
    expected = told(nlohmann::json::parse(text));
  } catch (const nlohmann::json::exception&) {
  }
  try {
    seen = told(JSON::parse(text));
  } catch (const platform::JSONError&) {
  }
  outcomes.expect(seen == expected,
                  expected == "refused" ? "a bad document refused" : "a document read as it is",
                  text.substr(0, 300) + " gives " + seen.substr(0, 200));
}

}  // namespace
}  // namespace ombrix

void ombrix::faults::run(const Plan& plan, Outcomes& outcomes) {
  Random random(plan.seed);
  for (std::size_t i = 0; i < plan.rounds(2000, 150'000); ++i) {
    std::string text = blanks(random) + randomValue(random, 0) + blanks(random);
    if (random() % 2 == 0) damage(text, random);
    check(text, outcomes);
  }
}
