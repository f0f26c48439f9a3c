#pragma once

#include <string>
#include <string_view>

#include "OmbrixCore/Extensions/Fuzzy/String+Fuzzy.hpp"

namespace ombrix::hostapp {

/// The marks before and after each matched stretch.
struct MatchMarks {
  std::string_view before, behind;

  static MatchMarks brackets() { return {"[", "]"}; }
  static MatchMarks bold() { return {"\x1b[1m", "\x1b[0m"}; }
};

/// The text with the characters marked that make up the match's best path.
std::string markMatch(std::string_view text, const FuzzyMatch& match, MatchMarks marks);

}  // namespace ombrix::hostapp
