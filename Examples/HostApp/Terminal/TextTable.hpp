#pragma once

#include <set>
#include <string>
#include <vector>

namespace ombrix::hostapp {

/// Columns of text for a terminal, the first one aligned left and the others right.
class TextTable {
 public:
  explicit TextTable(std::vector<std::string> headings);

  /// A row of as many cells as there are headings; cells may hold escape sequences.
  void add(std::vector<std::string> cells);

  /// Aligns another column left, too.
  void setLeft(std::size_t column);

  [[nodiscard]] bool empty() const noexcept { return rows_.size() == 1; }

  /// All rows, the headings first. Columns beyond the width go into further tables below, each
  /// after the first column.
  /// @param most The columns of the terminal.
  [[nodiscard]] std::string lines(std::size_t most = std::string::npos) const;

 private:
  std::vector<std::vector<std::string>> rows_;
  std::set<std::size_t> left_ = {0};
};

/// How many columns a text takes on a terminal: two for wide characters, none for escape sequences.
std::size_t columnsOf(std::string_view text);

}  // namespace ombrix::hostapp
