#include "Examples/HostApp/Terminal/JSONText.hpp"

#include <functional>

namespace ombrix::hostapp {
namespace {

using platform::JSON;

std::string plain(const JSON& json) { return std::string(platform::textOf(json.rawData())); }

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
