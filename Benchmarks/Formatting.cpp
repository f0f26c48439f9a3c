// Value to text: our formatters beside bare ICU, reused and made anew, with capitals as ours have
// them; styling beside a regular expression.

#include <benchmark/benchmark.h>
#include <unicode/decimfmt.h>
#include <unicode/measfmt.h>
#include <unicode/measure.h>
#include <unicode/numberformatter.h>
#include <unicode/regex.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>

#include "OmbrixCore/Formatting/OmbrixDurationFormatter.hpp"
#include "OmbrixCore/Formatting/OmbrixMeasurementFormatter.hpp"
#include "OmbrixCore/Formatting/OmbrixTimerFormatter.hpp"
#include "OmbrixCore/Formatting/OmbrixValueFormatter.hpp"
#include "OmbrixCore/Settings/OmbrixSettings.hpp"

namespace {

using ombrix::OmbrixMeasurementFormatter;
using Format = OmbrixMeasurementFormatter::MeasurementFormat;
using icu::number::LocalizedNumberFormatter;

constexpr double kMetersPerSecond = 10;
constexpr double kKilometersPerHour = kMetersPerSecond / 0.277778;

/// A DecimalFormat set as ours is, and the unit formatter made from it.
struct BareIcu {
  BareIcu() {
    UErrorCode status = U_ZERO_ERROR;
    decimal.reset(static_cast<icu::DecimalFormat*>(
        icu::NumberFormat::createInstance(icu::Locale("en_US"), UNUM_DECIMAL, status)));
    decimal->setMinimumFractionDigits(1);
    decimal->setMaximumFractionDigits(1);
    decimal->setRoundingMode(icu::DecimalFormat::kRoundHalfUp);
    formatter = decimal->toNumberFormatter(status)
                    ->unit(icu::MeasureUnit::forIdentifier("kilometer-per-hour", status))
                    .unitWidth(UNUM_UNIT_WIDTH_SHORT);
  }

  std::string text(double number) const {
    UErrorCode status = U_ZERO_ERROR;
    const auto formatted = formatter.formatDouble(number, status);
    icu::UnicodeString text = formatted.toString(status);
    text.toUpper(icu::Locale::getRoot());
    std::string utf8;
    text.toUTF8String(utf8);
    return utf8;
  }

  std::unique_ptr<icu::DecimalFormat> decimal;
  LocalizedNumberFormatter formatter;
};

void require(bool agrees, const char* what) {
  if (agrees) return;
  std::fprintf(stderr, "formatting: the contenders disagree about %s\n", what);
  std::exit(1);
}

void measurementOurs(benchmark::State& state) {
  OmbrixMeasurementFormatter formatter(Format::speed);
  const BareIcu icu;
  for (int i = 0; i < 2'000; ++i) {
    const double speed = 0.37 * i;
    require(formatter.string(speed) == icu.text(speed / 0.277778), "speeds");
  }
  double speed = kMetersPerSecond;
  for (auto _ : state) benchmark::DoNotOptimize(formatter.string(speed += 0.1));
}
BENCHMARK(measurementOurs)->Name("measurement/ours");

void measurementIcu(benchmark::State& state) {
  const BareIcu icu;
  for (int i = 0; i < 10; ++i) icu.text(i);
  double speed = kKilometersPerHour;
  for (auto _ : state) benchmark::DoNotOptimize(icu.text(speed += 0.36));
}
BENCHMARK(measurementIcu)->Name("measurement/ICU reused");

void newFormatterOurs(benchmark::State& state) {
  for (auto _ : state) {
    OmbrixMeasurementFormatter formatter(Format::speed);
    benchmark::DoNotOptimize(formatter.string(kMetersPerSecond));
  }
}
BENCHMARK(newFormatterOurs)->Name("new formatter/ours");

void newFormatterIcu(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(BareIcu().text(kKilometersPerHour));
}
BENCHMARK(newFormatterIcu)->Name("new formatter/ICU");

template <Format kFormat>
void otherFormats(benchmark::State& state) {
  OmbrixMeasurementFormatter formatter(kFormat);
  for (int i = 0; i < 10; ++i) formatter.string(i);
  for (auto _ : state) benchmark::DoNotOptimize(formatter.string(1'234.5));
}
BENCHMARK(otherFormats<Format::weight>)->Name("weight/ours");
BENCHMARK(otherFormats<Format::temperature>)->Name("temperature/ours");
BENCHMARK(otherFormats<Format::heartRate>)->Name("heart rate/ours");

/// The same text by the class that is made for it.
std::string measureFormatText(const icu::MeasureFormat& format, int hours, int minutes,
                              int seconds) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::Measure parts[] = {{hours, icu::MeasureUnit::createHour(status), status},
                                {minutes, icu::MeasureUnit::createMinute(status), status},
                                {seconds, icu::MeasureUnit::createSecond(status), status}};
  icu::FieldPosition position(icu::FieldPosition::DONT_CARE);
  icu::UnicodeString text;
  format.formatMeasures(parts, 3, text, position, status);
  text.toUpper(icu::Locale::getRoot());
  std::string utf8;
  text.toUTF8String(utf8);
  return utf8;
}

void duration(benchmark::State& state) {
  ombrix::OmbrixDurationFormatter formatter(ombrix::platform::NSCalendarUnit::second);
  UErrorCode status = U_ZERO_ERROR;
  const icu::MeasureFormat icu(icu::Locale("en_US"), UMEASFMT_WIDTH_NARROW, status);
  for (int s = 3'600; s < 7'200; s += 7) {
    require(formatter.string(s) == measureFormatText(icu, 1, s / 60 % 60, s % 60), "durations");
  }
  for (auto _ : state) benchmark::DoNotOptimize(formatter.string(3'725));
}
BENCHMARK(duration)->Name("duration/ours");

void durationIcu(benchmark::State& state) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::MeasureFormat icu(icu::Locale("en_US"), UMEASFMT_WIDTH_NARROW, status);
  for (auto _ : state) benchmark::DoNotOptimize(measureFormatText(icu, 1, 2, 5));
}
BENCHMARK(durationIcu)->Name("duration/ICU MeasureFormat");

void timer(benchmark::State& state) {
  ombrix::OmbrixTimerFormatter formatter(ombrix::platform::NSCalendarUnit::second);
  for (int i = 0; i < 10; ++i) formatter.string(3'725);
  for (auto _ : state) benchmark::DoNotOptimize(formatter.string(3'725));
}
BENCHMARK(timer)->Name("timer/ours");

using ombrix::platform::NSAttributedString;
using Key = NSAttributedString::Key;
constexpr std::u16string_view kValueText = u"12.3 KM/H";

void styleOurs(benchmark::State& state) {
  const NSAttributedString::Attributes attributes{
      {Key::font, ombrix::platform::UIFont("Inter", 20)},
      {Key::foregroundColor, ombrix::platform::UIColor{1, 1, 1, 1}}};
  const auto& formatter = ombrix::OmbrixValueFormatter::shared();
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        formatter.attributedStringWithDefaultAttributes("12.3 KM/H", attributes));
  }
}
BENCHMARK(styleOurs)->Name("style/ours");

/// Only finds the ranges; nothing is built of them.
void styleRegex(benchmark::State& state) {
  UErrorCode status = U_ZERO_ERROR;
  const std::unique_ptr<icu::RegexPattern> pattern(
      icu::RegexPattern::compile(icu::UnicodeString(uR"((\p{L})?([\/%])?)"), 0, status));
  const icu::UnicodeString text(kValueText.data(), static_cast<int>(kValueText.size()));
  for (auto _ : state) {
    const std::unique_ptr<icu::RegexMatcher> matcher(pattern->matcher(text, status));
    int units = 0;
    while (matcher->find(status)) units += matcher->end(status) - matcher->start(status);
    benchmark::DoNotOptimize(units);
  }
}
BENCHMARK(styleRegex)->Name("style/ICU regular expression");

/// The processor time of the first text in a process of its own, in which nothing was made before.
double coldStart(const char* contender) {
  const std::string command =
      std::string("/proc/") + std::to_string(getpid()) + "/exe --cold " + contender;
  double seconds = 0;
  std::FILE* pipe = popen(command.c_str(), "r");
  require(pipe != nullptr && std::fscanf(pipe, "%lf", &seconds) == 1, "how to start");
  pclose(pipe);
  return seconds;
}

template <bool kIsOurs>
void firstText(benchmark::State& state) {
  for (auto _ : state) state.SetIterationTime(coldStart(kIsOurs ? "ours" : "ICU"));
}
BENCHMARK(firstText<true>)->Name("first text/ours")->UseManualTime()->Iterations(20);
BENCHMARK(firstText<false>)->Name("first text/ICU")->UseManualTime()->Iterations(20);

void prepareSettings() {
  ombrix::OmbrixSettings::shared().registerCoreSettings();
  ombrix::OmbrixSettings::shared().setMetricType("kilometers");
}

double processorSeconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

int runCold(const char* contender) {
  const bool isOurs = std::strcmp(contender, "ours") == 0;
  if (isOurs) prepareSettings();
  const double begin = processorSeconds();
  const std::string text = isOurs
                               ? *OmbrixMeasurementFormatter(Format::speed).string(kMetersPerSecond)
                               : BareIcu().text(kKilometersPerHour);
  std::printf("%.9f\n", processorSeconds() - begin);
  return text.empty() ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::strcmp(argv[1], "--cold") == 0) return runCold(argv[2]);
  setenv("LC_ALL", "en_US.UTF-8", 1);
  prepareSettings();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
