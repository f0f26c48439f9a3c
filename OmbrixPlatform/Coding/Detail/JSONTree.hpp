#pragma once

#include <optional>
#include <string_view>

#include "OmbrixPlatform/Coding/Detail/TreeEncoder.hpp"
#include "OmbrixPlatform/Coding/JSON.hpp"
#include "OmbrixPlatform/Coding/JSONCodingOptions.hpp"

namespace ombrix::platform::detail {

/// JSON for `TreeEncoder`.
struct JSONTree {
  using Tree = JSON;
  using Options = JSONCodingOptions;

  static JSON null() { return {}; }
  static JSON primitive(const CodingPrimitive& value, const JSONCodingOptions& options,
                        const CodingPath& path);
};

// The forms that the options select, shared with the coders' fast path.

/// The date that a number means, by the options' strategy (not ISO 8601), and the other way round.
Date dateFromNumber(double number, const JSONCodingOptions& options);
double numberFromDate(Date date, const JSONCodingOptions& options);
/// The number that stands for a text under `nonConformingFloats`, and the other way round; empty
/// when there is none.
std::optional<double> realFromText(std::string_view text, const JSONCodingOptions& options);
std::optional<std::string_view> textFromReal(double value, const JSONCodingOptions& options);

}  // namespace ombrix::platform::detail
