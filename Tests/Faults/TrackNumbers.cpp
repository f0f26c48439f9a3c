// Rows of numbers, read and written, against the C library: strtod reads, printf gives all digits.

#include <array>
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <random>

#include "Faults/FaultRun.hpp"
#include "OmbrixPlatform/Csv/CSVReader.hpp"
#include "OmbrixPlatform/Csv/NumberText.hpp"

namespace ombrix::platform {
namespace {

using Random = std::mt19937_64;

constexpr std::size_t kColumns = 8;

std::string digits(Random& random, std::size_t most) {
  std::string text;
  for (auto count = 1 + random() % most; count > 0; --count) {
    text += static_cast<char>('0' + random() % 10);
  }
  return text;
}

/// A number in one of the forms that files hold, from the writer's own to far beyond any double.
std::string randomNumber(Random& random) {
  std::string text = random() % 3 == 0 ? "-" : "";
  switch (random() % 8) {
    case 0:
      return text + digits(random, 10) + "." + digits(random, 6);
    case 1:
      return text + digits(random, 3) + "." + digits(random, 1);
    case 2:
      return text + digits(random, 20) + "." + digits(random, 20);
    case 3:
      return text + digits(random, 25);
    case 4:
      return text + digits(random, 4) + "e" + (random() % 2 == 0 ? "-" : "") + digits(random, 3);
    case 5:
      return text + "0." + std::string(random() % 400, '0') + digits(random, 30);
    case 6:
      return text + digits(random, 30) + std::string(random() % 330, '0') + ".";
    default: {
      // Exactly, or just beside, the middle between two doubles.
      std::array<char, 1200> exact{};
      const double value = std::bit_cast<double>(random() % 0x7FE0'0000'0000'0000);
      const double middle = std::ldexp(value, -1) + std::ldexp(std::nextafter(value, 1e308), -1);
      std::snprintf(exact.data(), exact.size(), "%.780e", middle);
      return text + exact.data();
    }
  }
}

double plainlyRead(const std::string& text) { return std::strtod(text.c_str(), nullptr); }

/// A row by each way there is; all must give strtod's bits.
void checkReading(Random& random, faults::Outcomes& outcomes) {
  std::array<double, kColumns> expected{};
  std::string row;
  for (std::size_t i = 0; i < kColumns; ++i) {
    const std::string text = randomNumber(random);
    expected[i] = plainlyRead(text);
    row += (i == 0 ? "" : ",") + text;
  }
  row += '\n';
  const auto isSame = [&](const std::array<double, kColumns>& numbers) {
    using Bits = std::array<std::uint64_t, kColumns>;
    return std::bit_cast<Bits>(numbers) == std::bit_cast<Bits>(expected);
  };
  bool same = true;
  // Behind the row there must be room that the scanners may load.
  const std::string text = row + row + row;
  for (const bool wide : {false, true}) {
    CSVReader reader(text, {.usesWideInstructions = wide});
    std::array<double, kColumns> numbers{};
    for (int i = 0; i < 3; ++i) {
      if (!reader.nextNumbers(numbers)) {
        const auto fields = reader.next().value();
        for (std::size_t k = 0; k < kColumns; ++k) {
          numbers[k] = doubleFromText(fields[k]).value_or(12345.678);
        }
      }
      same = same && isSame(numbers);
    }
  }
  outcomes.expect(same, "a row read as strtod reads it", row);
}

/// The rule of cutting, in plain steps: the shortest of 15 digits where it names the number, all
/// digits otherwise; cut behind the fraction digits.
std::string plainlyWritten(double value, int fractionDigits) {
  std::array<char, 1500> text{};
  std::snprintf(text.data(), text.size(), "%.14e", value);
  const bool isShort = std::strtod(text.data(), nullptr) == value;
  std::snprintf(text.data(), text.size(), "%.1100f", value);
  std::string all = text.data();
  if (isShort) {
    // Fifteen digits from the first that counts; the exact value's later ones round to them.
    std::snprintf(text.data(), text.size(), "%.14e", value);
    const std::string shortest = text.data();
    const auto mark = shortest.find('e');
    const int exponent = std::atoi(shortest.c_str() + mark + 1);
    std::string significant;
    for (const char c : shortest.substr(0, mark)) {
      if (c >= '0' && c <= '9') significant += c;
    }
    all = shortest[0] == '-' ? "-" : "";
    for (int place = std::max(exponent, 0); place >= -20; --place) {
      if (place == -1) all += '.';
      const int index = exponent - place;
      all += index >= 0 && index < 15 ? significant[static_cast<std::size_t>(index)] : '0';
    }
  }
  return all.substr(0, all.find('.') + 1 + static_cast<std::size_t>(fractionDigits));
}

void checkWriting(Random& random, faults::Outcomes& outcomes) {
  const double scale = std::pow(10.0, static_cast<double>(random() % 10));
  const double shapes[] = {
      static_cast<double>(static_cast<std::int64_t>(random() % 400'000'000) - 200'000'000) / 1e6,
      static_cast<double>(random() % 400'000'000'000) / 1e3 + 1.5e9,
      static_cast<double>(random() % 1'000'000'000'000'000) / scale,
      std::ldexp(static_cast<double>(random() >> 11), static_cast<int>(random() % 120) - 110),
      std::bit_cast<double>(random() % 0x7FE0'0000'0000'0000)};
  for (const double magnitude : shapes) {
    double value = random() % 2 == 0 ? magnitude : -magnitude;
    // The neighbours of a number with a short text have long ones.
    for (auto steps = random() % 3; steps > 0; --steps) value = std::nextafter(value, 1e308);
    for (const int fractionDigits : {6, 1}) {
      const auto written = TruncatingNumberFormat(fractionDigits).string(value);
      outcomes.expect(written == plainlyWritten(value, fractionDigits),
                      "a number written as printf's digits, cut",
                      written.value_or("nothing") + " " + plainlyWritten(value, fractionDigits));
    }
  }
}

}  // namespace
}  // namespace ombrix::platform

void ombrix::faults::run(const Plan& plan, Outcomes& outcomes) {
  using namespace ombrix::platform;
  Random random(plan.seed);
  for (std::size_t i = 0; i < plan.rounds(5000, 2'000'000); ++i) checkReading(random, outcomes);
  for (std::size_t i = 0; i < plan.rounds(2000, 200'000); ++i) checkWriting(random, outcomes);
}
