// The texts of every kind of value: all unit systems in en_US, and the usual one in two other
// locales (miles where feet are abbreviated). Unit names and separators are those of ICU 72.

#pragma once

#include "OmbrixCore/Formatting/OmbrixMeasurementFormatter.hpp"

namespace ombrix {

struct MeasurementText {
  const char* locale;
  OmbrixMeasurementFormatter::MeasurementFormat format;
  const char* preference;
  double number;
  const char *valueOnly, *shortText, *mediumText, *longText;
  const char* unitLabel;  // null where there is none
};

using F = OmbrixMeasurementFormatter::MeasurementFormat;

// clang-format off
inline constexpr MeasurementText kMeasurementTexts[] = {
    {"en_US", F::speed,          "miles",      10,      "22.4",         "22.4MPH",      "22.4 MPH",       "22.4 MILES PER HOUR",          "mph"},
    {"en_US", F::speed,          "kilometers", 10,      "36.0",         "36.0KM/H",     "36.0 KM/H",      "36.0 KILOMETERS PER HOUR",     "km/h"},
    {"en_US", F::speed,          "british",    10,      "22.4",         "22.4MPH",      "22.4 MPH",       "22.4 MILES PER HOUR",          "mph"},
    {"en_US", F::distance,       "miles",      12345.7, "7.7",          "7.7MI",        "7.7 MI",         "7.7 MILES",                    "mi"},
    {"en_US", F::distance,       "kilometers", 12345.7, "12.3",         "12.3KM",       "12.3 KM",        "12.3 KILOMETERS",              "km"},
    {"en_US", F::distance,       "british",    12345.7, "12.3",         "12.3KM",       "12.3 KM",        "12.3 KILOMETERS",              "km"},
    {"en_US", F::altitude,       "miles",      2345.6,  "7,696",        "7,696′",       "7,696 FT",       "7,696 FEET",                   "ft"},
    {"en_US", F::altitude,       "kilometers", 2345.6,  "2,346",        "2,346M",       "2,346 M",        "2,346 METERS",                 "m"},
    {"en_US", F::altitude,       "british",    2345.6,  "2,346",        "2,346M",       "2,346 M",        "2,346 METERS",                 "m"},
    {"en_US", F::vertical,       "miles",      1234.5,  "4,050",        "4,050′",       "4,050 FT",       "4,050 FEET",                   "ft"},
    {"en_US", F::vertical,       "kilometers", 1234.5,  "1,235",        "1,235M",       "1,235 M",        "1,235 METERS",                 "m"},
    {"en_US", F::vertical,       "british",    1234.5,  "1,235",        "1,235M",       "1,235 M",        "1,235 METERS",                 "m"},
    {"en_US", F::altitudeChange, "miles",      -87.4,   "-287",         "-287′",        "-287 FT",        "-287 FEET",                    "ft"},
    {"en_US", F::altitudeChange, "kilometers", -87.4,   "-87",          "-87M",         "-87 M",          "-87 METERS",                   "m"},
    {"en_US", F::altitudeChange, "british",    -87.4,   "-87",          "-87M",         "-87 M",          "-87 METERS",                   "m"},
    {"en_US", F::totalVertical,  "miles",      12345,   "40.5k",        "40.5K′",       "40.5K FT",       "40.5K FEET",                   "ft"},
    {"en_US", F::totalVertical,  "kilometers", 12345,   "12",           "12KM",         "12 KM",          "12 KILOMETERS",                "km"},
    {"en_US", F::totalVertical,  "british",    12345,   "12",           "12KM",         "12 KM",          "12 KILOMETERS",                "km"},
    {"en_US", F::seasonVertical, "miles",      3961.2,  "12.9k",        "12.9K′",       "12.9K FT",       "12.9K FEET",                   "ft"},
    {"en_US", F::seasonVertical, "kilometers", 3961.2,  "4",            "4KM",          "4 KM",           "4 KILOMETERS",                 "km"},
    {"en_US", F::seasonVertical, "british",    3961.2,  "4",            "4KM",          "4 KM",           "4 KILOMETERS",                 "km"},
    {"en_US", F::dailyVertical,  "miles",      3961.2,  "12k",          "12K′",         "12K FT",         "12K FEET",                     "ft"},
    {"en_US", F::dailyVertical,  "kilometers", 3961.2,  "4",            "4KM",          "4 KM",           "4 KILOMETERS",                 "km"},
    {"en_US", F::dailyVertical,  "british",    3961.2,  "4",            "4KM",          "4 KM",           "4 KILOMETERS",                 "km"},
    {"en_US", F::weight,         "miles",      71.5,    "158",          "158#",         "158 LB",         "158 POUNDS",                   "lb"},
    {"en_US", F::weight,         "kilometers", 71.5,    "158",          "158#",         "158 LB",         "158 POUNDS",                   "lb"},
    {"en_US", F::weight,         "british",    71.5,    "158",          "158#",         "158 LB",         "158 POUNDS",                   "lb"},
    {"en_US", F::energy,         "miles",      1234.5,  "1,235",        "1,235KCAL",    "1,235 KCAL",     "1,235 KILOCALORIES",           "kcal"},
    {"en_US", F::energy,         "kilometers", 1234.5,  "1,235",        "1,235KCAL",    "1,235 KCAL",     "1,235 KILOCALORIES",           "kcal"},
    {"en_US", F::energy,         "british",    1234.5,  "1,235",        "1,235KCAL",    "1,235 KCAL",     "1,235 KILOCALORIES",           "kcal"},
    {"en_US", F::heartRate,      "miles",      128.4,   "128",          "128 BPM",      "128 BPM",        "128 BPM",                      "bpm"},
    {"en_US", F::heartRate,      "kilometers", 128.4,   "128",          "128 BPM",      "128 BPM",        "128 BPM",                      "bpm"},
    {"en_US", F::heartRate,      "british",    128.4,   "128",          "128 BPM",      "128 BPM",        "128 BPM",                      "bpm"},
    {"en_US", F::depth,          "miles",      152.4,   "60",           "60″",          "60 IN",          "60 INCHES",                    "in"},
    {"en_US", F::depth,          "kilometers", 152.4,   "152",          "152CM",        "152 CM",         "152 CENTIMETERS",              "cm"},
    {"en_US", F::depth,          "british",    152.4,   "152",          "152CM",        "152 CM",         "152 CENTIMETERS",              "cm"},
    {"en_US", F::temperature,    "miles",      -12.5,   "9",            "9°",           "9°F",            "9 DEGREES FAHRENHEIT",         nullptr},
    {"en_US", F::temperature,    "kilometers", -12.5,   "9",            "9°",           "9°F",            "9 DEGREES FAHRENHEIT",         nullptr},
    {"en_US", F::temperature,    "british",    -12.5,   "9",            "9°",           "9°F",            "9 DEGREES FAHRENHEIT",         nullptr},
    {"en_US", F::angle,          "miles",      37.5,    "38",           "38°",          "38 DEG",         "38 DEGREES",                   "deg"},
    {"en_US", F::angle,          "kilometers", 37.5,    "38",           "38°",          "38 DEG",         "38 DEGREES",                   "deg"},
    {"en_US", F::angle,          "british",    37.5,    "38",           "38°",          "38 DEG",         "38 DEGREES",                   "deg"},

    {"de_DE", F::speed,          "miles",      10,      "22,4",         "22,4 MI/H",    "22,4 MI/H",      "22,4 MEILEN PRO STUNDE",       "mi/h"},
    {"de_DE", F::distance,       "kilometers", 12345.7, "12,3",         "12,3 KM",      "12,3 KM",        "12,3 KILOMETER",               "km"},
    {"de_DE", F::altitude,       "kilometers", 2345.6,  "2.346",        "2.346 M",      "2.346 M",        "2.346 METER",                  "m"},
    {"de_DE", F::vertical,       "kilometers", 1234.5,  "1.235",        "1.235 M",      "1.235 M",        "1.235 METER",                  "m"},
    {"de_DE", F::altitudeChange, "miles",      -87.4,   "-287",         "-287 FT",      "-287 FT",        "-287 FUSS",                    "ft"},
    {"de_DE", F::totalVertical,  "miles",      12345,   "40,5k",        "40,5K FT",     "40,5K FT",       "40,5K FUSS",                   "ft"},
    {"de_DE", F::seasonVertical, "miles",      3961.2,  "12,9k",        "12,9K FT",     "12,9K FT",       "12,9K FUSS",                   "ft"},
    {"de_DE", F::dailyVertical,  "miles",      3961.2,  "12k",          "12K FT",       "12K FT",         "12K FUSS",                     "ft"},
    {"de_DE", F::weight,         "kilometers", 71.5,    "72",           "72 KG",        "72 KG",          "72 KILOGRAMM",                 "kg"},
    {"de_DE", F::energy,         "kilometers", 1234.5,  "1.235",        "1.235 KCAL",   "1.235 KCAL",     "1.235\u00a0KILOKALORIEN",      "kcal"},
    {"de_DE", F::heartRate,      "kilometers", 128.4,   "128",          "128 BPM",      "128 BPM",        "128 BPM",                      "bpm"},
    {"de_DE", F::depth,          "kilometers", 152.4,   "152",          "152 CM",       "152 CM",         "152 ZENTIMETER",               "cm"},
    {"de_DE", F::temperature,    "kilometers", -12.5,   "-13",          "-13 °C",       "-13 °C",         "-13 GRAD CELSIUS",             nullptr},
    {"de_DE", F::angle,          "kilometers", 37.5,    "38",           "38°",          "38°",            "38 GRAD",                      "°"},

    {"ar_EG", F::speed,          "miles",      10,      "٢٢٫٤",         "٢٢٫٤ ميل/س",   "٢٢٫٤ ميل/س",     "٢٢٫٤ ميل في الساعة",           "ميل/س"},
    {"ar_EG", F::distance,       "kilometers", 12345.7, "١٢٫٣",         "١٢٫٣ كم",      "١٢٫٣ كم",        "١٢٫٣ كيلومتر",                 "كم"},
    {"ar_EG", F::altitude,       "kilometers", 2345.6,  "٢٬٣٤٦",        "٢٬٣٤٦ م",      "٢٬٣٤٦ مترًا",     "٢٬٣٤٦ مترًا",                   "أمتار"},
    {"ar_EG", F::vertical,       "kilometers", 1234.5,  "١٬٢٣٥",        "١٬٢٣٥ م",      "١٬٢٣٥ مترًا",     "١٬٢٣٥ مترًا",                   "أمتار"},
    {"ar_EG", F::altitudeChange, "miles",      -87.4,   "\u061c-٢٨٧",   "\u061c-٢٨٧ قدمًا", "\u061c-٢٨٧ قدم", "\u061c-٢٨٧ قدم",               "قدم"},
    {"ar_EG", F::totalVertical,  "miles",      12345,   "٤٠٫٥k",        "٤٠٫٥K قدم",    "٤٠٫٥K قدم",      "٤٠٫٥K قدم",                    "قدم"},
    {"ar_EG", F::seasonVertical, "miles",      3961.2,  "١٢٫٩k",        "١٢٫٩K قدمًا",  "١٢٫٩K قدم",      "١٢٫٩K قدم",                    "قدم"},
    {"ar_EG", F::dailyVertical,  "miles",      3961.2,  "١٢k",          "١٢K قدمًا",     "١٢K قدم",        "١٢K قدم",                      "قدم"},
    {"ar_EG", F::weight,         "kilometers", 71.5,    "٧٢",           "٧٢ كغ",        "٧٢ كغم",         "٧٢ كيلوغرام",                  "كغم"},
    {"ar_EG", F::energy,         "kilometers", 1234.5,  "١٬٢٣٥",        "١٬٢٣٥ ك سع",   "١٬٢٣٥ ك سعرة",   "١٬٢٣٥ كيلو سعرة",              "ك سعرة"},
    {"ar_EG", F::heartRate,      "kilometers", 128.4,   "١٢٨",          "١٢٨ BPM",      "١٢٨ BPM",        "١٢٨ BPM",                      "bpm"},
    {"ar_EG", F::depth,          "kilometers", 152.4,   "١٥٢",          "١٥٢ سم",       "١٥٢ سم",         "١٥٢ سنتيمتر",                  "سم"},
    {"ar_EG", F::temperature,    "kilometers", -12.5,   "\u061c-١٣",    "\u061c-١٣°م",  "\u061c-١٣°م",    "\u061c-١٣ درجة مئوية",         nullptr},
    {"ar_EG", F::angle,          "kilometers", 37.5,    "٣٨",           "٣٨ درجة",      "٣٨ درجة",        "٣٨ درجة",                      "درجات"},
};
// clang-format on

}  // namespace ombrix
