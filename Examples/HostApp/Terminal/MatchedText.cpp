#include "Examples/HostApp/Terminal/MatchedText.hpp"

#include <vector>

#include "OmbrixPlatform/Text/TextSegmentation.hpp"

namespace ombrix::hostapp {
namespace {

/// Whether each column of the matrix lies on the best path, followed back from the last row.
std::vector<bool> matchedColumns(const FuzzyMatch& match) {
  const auto& matrix = match.matrix;
  std::vector<bool> matched(matrix.width);
  std::size_t end = matrix.width;  // The path's column in the row below; none yet.
  for (std::size_t row = matrix.height; row-- > 0;) {
    std::optional<std::int64_t> best;
    std::size_t bestColumn = 0;
    for (std::size_t column = 0; column < end; ++column) {
      const auto& cell = matrix.at(row, column);
      if (!cell) continue;
      const bool isLastRow = row + 1 == matrix.height;
      const auto skipped = isLastRow ? 0 : static_cast<std::int64_t>(end - column - 1);
      if (!best || *cell - skipped > *best) {
        best = *cell - skipped;
        bestColumn = column;
      }
    }
    matched[bestColumn] = true;
    end = bestColumn;
  }
  return matched;
}

}  // namespace

std::string markMatch(std::string_view text, const FuzzyMatch& match, MatchMarks marks) {
  const platform::TextCharacters characters(text);
  const auto matched = matchedColumns(match);
  std::string marked;
  bool inside = false;
  for (std::size_t i = 0; i < characters.size(); ++i) {
    const bool isMatched = i < matched.size() && matched[i];
    if (isMatched != inside) marked += isMatched ? marks.before : marks.behind;
    inside = isMatched;
    marked += characters[i];
  }
  if (inside) marked += marks.behind;
  return marked;
}

}  // namespace ombrix::hostapp
