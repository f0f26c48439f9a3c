// Writing a track of eight numbers a row to memory: ours, beside formatters with the same digits.

#include <benchmark/benchmark.h>
#include <fmt/compile.h>
#include <fmt/format.h>
#include <unicode/decimfmt.h>
#include <unicode/numfmt.h>

#include <cmath>
#include <cstdlib>
#include <memory>

#include "Benchmarks/TrackData.hpp"
#include "OmbrixCore/Data/LocationCSVWriter.hpp"
#include "OmbrixPlatform/Files/OutputStream.hpp"

namespace {

using namespace ombrix;
using bench::Columns;

constexpr std::size_t kRows = 20'000;

/// Values with as many decimals as are written, so that rounding and cutting give the same text.
const std::vector<CLLocation>& track() {
  static const auto fixes = [] {
    auto made = bench::makeTrack(kRows);
    for (CLLocation& fix : made) {
      Columns columns = bench::columnsOf(fix);
      for (std::size_t i = 0; i < columns.size(); ++i) {
        const double scale = std::pow(10, bench::kWritersDecimals[i]);
        columns[i] = std::round(columns[i] * scale) / scale;
      }
      fix = bench::locationFrom(columns);
    }
    return made;
  }();
  return fixes;
}

/// Rows by a function that appends one number.
template <class Append>
void rows(std::string& text, Append append) {
  for (const CLLocation& fix : track()) {
    const Columns columns = bench::columnsOf(fix);
    for (std::size_t i = 0; i < columns.size(); ++i) {
      append(text, columns[i], bench::kWritersDecimals[i]);
      text += i + 1 < columns.size() ? ',' : '\n';
    }
  }
}

class TextStream final : public platform::OutputStream {
 public:
  explicit TextStream(std::string& text) : text_(text) {}
  platform::FileResult<void> open() override { return {}; }
  void close() noexcept override {}
  platform::FileResult<void> write(platform::DataView bytes) override {
    text_ += platform::textOf(bytes);
    return {};
  }

 private:
  std::string& text_;
};

void ours(std::string& text) { LocationCSVWriter(std::make_shared<TextStream>(text)).add(track()); }

void byFmt(std::string& text) {
  rows(text, [](std::string& to, double number, int decimals) {
    if (decimals == 6) {
      fmt::format_to(std::back_inserter(to), FMT_COMPILE("{:.6f}"), number);
    } else {
      fmt::format_to(std::back_inserter(to), FMT_COMPILE("{:.1f}"), number);
    }
  });
}

void byToChars(std::string& text) {
  rows(text, [](std::string& to, double number, int decimals) {
    char field[64];
    const auto end = std::to_chars(field, field + 64, number, std::chars_format::fixed, decimals);
    to.append(field, end.ptr);
  });
}

void bySnprintf(std::string& text) {
  rows(text, [](std::string& to, double number, int decimals) {
    char field[64];
    const int size = std::snprintf(field, sizeof field, "%.*f", decimals, number);
    to.append(field, static_cast<std::size_t>(size));
  });
}

void byICU(std::string& text) {
  static const auto formats = [] {
    std::array<std::unique_ptr<icu::NumberFormat>, 2> made;
    for (std::size_t i = 0; i < 2; ++i) {
      UErrorCode status = U_ZERO_ERROR;
      made[i].reset(icu::NumberFormat::createInstance("en_US", UNUM_DECIMAL, status));
      made[i]->setMinimumFractionDigits(i == 0 ? 6 : 1);
      made[i]->setMaximumFractionDigits(i == 0 ? 6 : 1);
      made[i]->setRoundingMode(icu::NumberFormat::kRoundDown);
      made[i]->setGroupingUsed(false);
    }
    return made;
  }();
  rows(text, [](std::string& to, double number, int decimals) {
    icu::UnicodeString field;
    formats[decimals == 6 ? 0 : 1]->format(number, field);
    field.toUTF8String(to);
  });
}

void write(benchmark::State& state, void (*contender)(std::string&)) {
  std::string text;
  std::string expected;
  contender(text);
  byICU(expected);
  if (text != expected) {
    std::fputs("the writers disagree\n", stderr);
    std::abort();
  }
  for (auto _ : state) {
    text.clear();
    contender(text);
    benchmark::DoNotOptimize(text);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kRows));
}

BENCHMARK_CAPTURE(write, ours, &ours);
BENCHMARK_CAPTURE(write, fmt, &byFmt);
BENCHMARK_CAPTURE(write, to_chars, &byToChars);
BENCHMARK_CAPTURE(write, snprintf, &bySnprintf);
BENCHMARK_CAPTURE(write, ICU, &byICU);

}  // namespace
