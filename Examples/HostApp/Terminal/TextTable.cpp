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
  // fmt pads by the width that terminals give characters, so what it adds tells that width.
  constexpr std::size_t kWide = 4096;
  const std::string plain = withoutEscapes(text);
  return kWide - (fmt::format("{:<{}}", plain, kWide).size() - plain.size());
}

TextTable::TextTable(std::vector<std::string> headings) { rows_.push_back(std::move(headings)); }

void TextTable::add(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }

void TextTable::setLeft(std::size_t column) { left_.insert(column); }

std::string TextTable::lines() const {
  std::vector<std::size_t> widths(rows_.front().size(), 0);
  for (const auto& row : rows_) {
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], columnsOf(row[i]));
  }
  std::string lines;
  for (const auto& row : rows_) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      const std::string blanks(widths[i] - columnsOf(row[i]), ' ');
      lines += "  " + (left_.contains(i) ? row[i] + blanks : blanks + row[i]);
    }
    while (lines.ends_with(' ')) lines.pop_back();
    lines += '\n';
  }
  return lines;
}

}  // namespace ombrix::hostapp
