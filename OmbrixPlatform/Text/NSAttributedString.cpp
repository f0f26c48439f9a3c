#include "OmbrixPlatform/Text/NSAttributedString.hpp"

#include <algorithm>
#include <ranges>

#include "OmbrixPlatform/Text/UTF16.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix::platform {
namespace {

bool areEqual(const NSAttributedString::SharedAttributes& a,
              const NSAttributedString::SharedAttributes& b) {
  return a == b || *a == *b;
}

}  // namespace

NSAttributedString::Attributes::Attributes(std::initializer_list<Entry> entries) {
  entries_.reserve(entries.size());
  for (const auto& [key, value] : entries) set(key, value);
}

void NSAttributedString::Attributes::set(Key key, Value value) {
  const auto known = std::ranges::find(entries_, key, &Entry::first);
  if (known == entries_.end()) {
    entries_.emplace_back(key, std::move(value));
  } else {
    known->second = std::move(value);
  }
}

void NSAttributedString::Attributes::erase(Key key) {
  std::erase_if(entries_, [key](const Entry& entry) { return entry.first == key; });
}

const NSAttributedString::Value* NSAttributedString::Attributes::find(Key key) const noexcept {
  const auto known = std::ranges::find(entries_, key, &Entry::first);
  return known == entries_.end() ? nullptr : &known->second;
}

bool operator==(const NSAttributedString::Attributes& a,
                const NSAttributedString::Attributes& b) noexcept {
  return a.size() == b.size() && std::ranges::all_of(a, [&b](const auto& entry) {
           const NSAttributedString::Value* value = b.find(entry.first);
           return value != nullptr && *value == entry.second;
         });
}

NSAttributedString::NSAttributedString(std::string_view text, Attributes attributes)
    : NSAttributedString(utf16From(text),
                         std::make_shared<const Attributes>(std::move(attributes))) {}

NSAttributedString::NSAttributedString(std::u16string text, SharedAttributes attributes)
    : text_(std::move(text)) {
  if (!text_.empty()) runs_.push_back({{0, text_.size()}, std::move(attributes)});
}

std::string NSAttributedString::string() const { return utf8From(text_); }

std::size_t NSAttributedString::indexOfRunAt(std::size_t location) const {
  const auto after = std::ranges::upper_bound(runs_, location, {},
                                              [](const Run& run) { return run.range.location; });
  return static_cast<std::size_t>(after - runs_.begin()) - 1;
}

const NSAttributedString::Run& NSAttributedString::runAt(std::size_t index) const {
  if (index >= length()) fatalError("NSAttributedString: index beyond the end of the text");
  return runs_[indexOfRunAt(index)];
}

// Makes a run begin at the location and returns its index; the number of runs at the text's end.
std::size_t NSAttributedString::split(std::size_t location) {
  if (location == length()) return runs_.size();
  const std::size_t index = indexOfRunAt(location);
  Run& run = runs_[index];
  if (run.range.location == location) return index;
  Run rest{{location, run.range.end() - location}, run.attributes};
  run.range.length = location - run.range.location;
  runs_.insert(runs_.begin() + static_cast<std::ptrdiff_t>(index) + 1, std::move(rest));
  return index + 1;
}

// Joins equal neighbours among the runs from the one before `first` (if any) to `last`.
void NSAttributedString::joinNeighbours(std::size_t first, std::size_t last) {
  for (std::size_t i = std::min(last, runs_.size() - 1); i > 0 && i >= first; --i) {
    if (!areEqual(runs_[i - 1].attributes, runs_[i].attributes)) continue;
    runs_[i - 1].range.length += runs_[i].range.length;
    runs_.erase(runs_.begin() + static_cast<std::ptrdiff_t>(i));
  }
}

void NSAttributedString::setAttributes(SharedAttributes attributes, NSRange range) {
  if (!range.liesInside(length())) fatalError("NSAttributedString: range beyond the text");
  if (range.length == 0) return;
  const std::size_t first = split(range.location);
  const std::size_t last = split(range.end());
  runs_[first] = {range, std::move(attributes)};
  runs_.erase(runs_.begin() + static_cast<std::ptrdiff_t>(first) + 1,
              runs_.begin() + static_cast<std::ptrdiff_t>(last));
  joinNeighbours(first, first + 1);
}

void NSAttributedString::removeAttribute(Key key, NSRange range) {
  if (!range.liesInside(length())) fatalError("NSAttributedString: range beyond the text");
  if (range.length == 0) return;
  const std::size_t first = split(range.location);
  const std::size_t last = split(range.end());
  for (std::size_t i = first; i < last; ++i) {
    if (runs_[i].attributes->find(key) == nullptr) continue;
    Attributes remaining = *runs_[i].attributes;
    remaining.erase(key);
    runs_[i].attributes = std::make_shared<const Attributes>(std::move(remaining));
  }
  joinNeighbours(first, last);
}

bool operator==(const NSAttributedString& a, const NSAttributedString& b) noexcept {
  return a.text_ == b.text_ && std::ranges::equal(a.runs_, b.runs_, [](auto& x, auto& y) {
           return x.range == y.range && areEqual(x.attributes, y.attributes);
         });
}

}  // namespace ombrix::platform
