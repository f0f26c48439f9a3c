#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Examples/HostApp/Commands/Arguments.hpp"
#include "Examples/HostApp/Commands/Commands.hpp"
#include "Examples/HostApp/Commands/Preferences.hpp"
#include "Examples/HostApp/Terminal/StyledText.hpp"
#include "Examples/HostApp/Texts/FigureTexts.hpp"
#include "OmbrixCore/Formatting/FormatNames.hpp"
#include "OmbrixCore/Formatting/OmbrixDurationFormatter.hpp"
#include "OmbrixCore/Formatting/OmbrixTimerFormatter.hpp"

namespace ombrix::hostapp {
namespace {

using platform::NSCalendarUnit;
using UnitStyle = OmbrixMeasurementFormatter::UnitStyle;

struct Options {
  double number = 0;
  std::string style = "medium";
  std::string minimum = "second";
};

// Beyond this, neighbouring doubles differ by more than the shown digits.
constexpr double kLargestValue = 1e15;
constexpr double kLongestSpanSeconds = 9e18;

/// Adds an option that takes one of several words.
template <class Choice>
void addChoice(CLI::App& command, const char* name, std::string& word, const char* description,
               const std::map<std::string, Choice>& choices) {
  std::vector<std::string> words;
  for (const auto& [known, choice] : choices) words.push_back(known);
  command.add_option(name, word, description)->check(CLI::IsMember(words))->option_text("WORD");
}

void print(const std::optional<platform::NSAttributedString>& text) {
  if (!text) throw CommandFailure("there is no text for this value");
  fmt::print("{}\n", forStandardOutput(*text));
}

/// The unit of a number given without one.
const char* inputUnit(OmbrixMeasurementFormatter::MeasurementFormat format) {
  using enum OmbrixMeasurementFormatter::MeasurementFormat;
  switch (format) {
    case speed:
      return "meters per second";
    case weight:
      return "kilograms";
    case energy:
      return "kilocalories";
    case heartRate:
      return "beats per minute";
    case depth:
      return "centimeters";
    case temperature:
      return "degrees Celsius";
    case angle:
      return "degrees";
    default:
      return "meters";
  }
}

/// Adds `format <kind> VALUE` for one kind of measurement.
void addMeasurement(CLI::App& format, const std::string& kind,
                    OmbrixMeasurementFormatter::MeasurementFormat measurementFormat) {
  static const std::map<std::string, UnitStyle> kStyles = {{"value", UnitStyle::valueOnly},
                                                           {"short", UnitStyle::shortStyle},
                                                           {"medium", UnitStyle::mediumStyle},
                                                           {"long", UnitStyle::longStyle}};
  const auto options = std::make_shared<Options>();
  CLI::App* command =
      format.add_subcommand(kind, std::string("VALUE in ") + inputUnit(measurementFormat));
  command->add_option("VALUE", options->number, "The number, in the kind's own unit")
      ->required()
      ->check(numberBetween(-kLargestValue, kLargestValue));
  addChoice(*command, "--style", options->style,
            "How the unit is written: value, short, medium, long", kStyles);
  addPreferenceOptions(*command);
  command->callback([options, measurementFormat] {
    OmbrixMeasurementFormatter formatter(measurementFormat);
    formatter.setUnitStyle(kStyles.at(options->style));
    print(formatter.attributedStringWithDefaultAttributes(options->number, valueAttributes()));
  });
}

/// Adds `format <kind> SECONDS` for durations or timers.
template <class Formatter>
void addSpan(CLI::App& format, const std::string& kind, const std::string& description) {
  static const std::map<std::string, NSCalendarUnit> kUnits = {{"day", NSCalendarUnit::day},
                                                               {"hour", NSCalendarUnit::hour},
                                                               {"minute", NSCalendarUnit::minute},
                                                               {"second", NSCalendarUnit::second}};
  const auto options = std::make_shared<Options>();
  CLI::App* command = format.add_subcommand(kind, description);
  command->add_option("SECONDS", options->number, "The span of time")
      ->required()
      ->check(numberBetween(-kLongestSpanSeconds, kLongestSpanSeconds));
  addChoice(*command, "--minimum", options->minimum,
            "The smallest unit that is shown: day, hour, minute, second", kUnits);
  addPreferenceOptions(*command);
  command->callback([options] {
    Formatter formatter(kUnits.at(options->minimum));
    print(formatter.attributedStringWithDefaultAttributes(options->number, valueAttributes()));
  });
}

}  // namespace

void addFormatCommand(CLI::App& app) {
  CLI::App* format = app.add_subcommand(
      "format", "Writes one value in the user's units and language: format KIND VALUE");
  format->require_subcommand(1);
  for (const auto& [name, measurementFormat] : measurementFormatNames()) {
    addMeasurement(*format, std::string(name), measurementFormat);
  }
  addSpan<OmbrixDurationFormatter>(*format, "duration", "SECONDS as a labelled duration");
  addSpan<OmbrixTimerFormatter>(*format, "timer", "SECONDS as a running clock");
}

}  // namespace ombrix::hostapp
