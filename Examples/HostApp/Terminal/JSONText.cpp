#include "Examples/HostApp/Terminal/JSONText.hpp"

#include <fmt/format.h>

#include <functional>
#include <string_view>

namespace ombrix::hostapp {
namespace {

using platform::JSON;

/// As the coder writes it, but with all control characters escaped: they would control a terminal.
std::string plain(const JSON& json) {
  const platform::Data data = json.rawData();
  const std::string_view text = platform::textOf(data);
  std::string shown;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const auto byte = static_cast<unsigned char>(text[at]);
    const auto next = static_cast<unsigned char>(at + 1 < text.size() ? text[at + 1] : 0);
    const bool isC1 = byte == 0xC2 && next >= 0x80 && next < 0xA0;
    if (byte != 0x7F && !isC1) {
      shown += text[at];
    } else {
      shown += fmt::format("\\u{:04x}", isC1 ? next : byte);
      at += isC1 ? 1 : 0;
    }
  }
  return shown;
}

void append(std::string& out, const JSON& json, std::size_t level);

/// Writes the elements of an array or a dictionary between its brackets.
template <class Elements>
void appendAll(std::string& out, const Elements& elements, std::size_t level, char opening,
               char closing,
               const std::function<void(const typename Elements::const_iterator&)>& appendOne) {
  out += opening;
  for (auto at = elements.begin(); at != elements.end(); ++at) {
    out += at == elements.begin() ? "\n" : ",\n";
    out.append(2 * (level + 1), ' ');
    appendOne(at);
  }
  out.append("\n").append(2 * level, ' ') += closing;
}

void append(std::string& out, const JSON& json, std::size_t level) {
  if (const auto* array = json.array(); array != nullptr && !array->empty()) {
    appendAll(out, *array, level, '[', ']', [&](const auto& at) { append(out, *at, level + 1); });
  } else if (const auto* all = json.dictionary(); all != nullptr && !all->empty()) {
    appendAll(out, *all, level, '{', '}', [&](const auto& at) {
      out += plain(JSON(at->key)) + ": ";
      append(out, at->value, level + 1);
    });
  } else {
    out += plain(json);
  }
}

}  // namespace

std::string indented(const JSON& json) {
  std::string out;
  append(out, json, 0);
  return out;
}

}  // namespace ombrix::hostapp
