#include "Examples/HostApp/Terminal/TextTable.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace ombrix::hostapp {
namespace {

std::string withoutEscapes(std::string_view text) {
  std::string plain;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] == '\x1b') {
      at = std::min(text.find('m', at), text.size());
    } else {
      plain += text[at];
    }
  }
  return plain;
}

}  // namespace

std::size_t columnsOf(std::string_view text) {
  // fmt pads by the width of characters on terminals, so the padding that it adds tells that width.
  constexpr std::size_t kWide = 4096;
  const std::string plain = withoutEscapes(text);
  return kWide - (fmt::format("{:<{}}", plain, kWide).size() - plain.size());
}

TextTable::TextTable(std::vector<std::string> headings) { rows_.push_back(std::move(headings)); }

void TextTable::add(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }

void TextTable::setLeft(std::size_t column) { left_.insert(column); }

std::string TextTable::lines(std::size_t most) const {
  std::vector<std::size_t> widths(rows_.front().size(), 0);
  for (const auto& row : rows_) {
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], columnsOf(row[i]));
  }
  constexpr std::size_t kBetween = 2;
  std::string lines;
  const auto addCell = [&](const std::vector<std::string>& row, std::size_t i) {
    const std::string blanks(widths[i] - columnsOf(row[i]), ' ');
    lines += std::string(kBetween, ' ') + (left_.contains(i) ? row[i] + blanks : blanks + row[i]);
  };
  for (std::size_t first = 1, end = 1; first == 1 || first < widths.size(); first = end) {
    std::size_t width = kBetween + widths[0];
    for (end = first; end < widths.size(); ++end) {
      width += kBetween + widths[end];
      if (width > most && end > first) break;
    }
    if (first > 1) lines += '\n';
    for (const auto& row : rows_) {
      addCell(row, 0);
      for (std::size_t i = first; i < end; ++i) addCell(row, i);
      while (lines.ends_with(' ')) lines.pop_back();
      lines += '\n';
    }
    if (end == widths.size()) break;
  }
  return lines;
}

}  // namespace ombrix::hostapp
