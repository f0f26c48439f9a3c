// Places, times and figures of a GeoJSON track by their shape alone. A bad byte may take a bracket,
// a comma or a name away, and with it the document's whole structure; an array of numbers in its
// own brackets still is a place, and a text that is a time still is one. What a bad byte does cost
// is the item it is in: the lists of places and of times then differ in length, and are held
// together from both ends.

#include <algorithm>
#include <cmath>
#include <optional>
#include <string_view>
#include <type_traits>
#include <vector>

#include "OmbrixDay/Formats/Detail/GeoJSONLine.hpp"
#include "OmbrixPlatform/Csv/NumberText.hpp"

namespace ombrix::detail {
namespace {

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

/// What stands before an item, behind the last one of its kind or behind a name.
struct Gap {
  std::size_t commas = 0, opened = 0, closed = 0;
  bool hasOthers = false;
  bool isBoundary = true;  ///< With a name or another kind's item: the next one begins a list.
  bool isBehindName = false;
  char last = '\0';

  void take(char c) {
    if (isSpace(c)) return;
    if ((c == '[' || c == '{') && isBehindName) *this = {};
    isBehindName = c == ':' && last == '"';
    last = c;
    if (c == ',') {
      ++commas;
    } else if (c == '[') {
      ++opened;
    } else if (c == ']') {
      ++closed;
    } else {
      hasOthers = true;
    }
  }

  /// Brackets, and between two items one comma; lines of a multi-line string have brackets between
  /// them.
  [[nodiscard]] bool isWhole() const { return !hasOthers && commas == (isBoundary ? 0U : 1U); }

  /// How many items seem to be missing here.
  [[nodiscard]] std::size_t missing(bool inBrackets) const {
    const std::size_t outer = isBoundary ? 1 : 0;
    if (inBrackets && hasOthers && opened + closed > outer) {
      return std::max(opened - std::min(opened, outer), closed);
    }
    return commas - std::min(commas, 1 - outer);
  }
};

template <class Item>
class List {
 public:
  std::vector<Item> items;  ///< Those that are missing are none.
  bool isWhole = true;
  bool isEnded = false;                 ///< Whether the list's end follows its last item.
  std::size_t inFront = 0, behind = 0;  ///< Items before the first gap and since the last one.

  /// @param most How many may be missing, at most.
  /// @return how many items were added
  std::size_t add(const Item& item, const Gap& gap, bool inBrackets, std::size_t most) {
    std::size_t missing = 0;
    if (!gap.isWhole()) {
      missing = std::min(gap.missing(inBrackets), most);
      items.insert(items.end(), missing, none());
      isWhole = false;
      behind = 0;
    }
    items.push_back(item);
    if (isWhole) ++inFront;
    ++behind;
    return missing + 1;
  }

 private:
  static Item none() {
    if constexpr (std::is_same_v<Item, double>) return kNone;
    return {};
  }
};

/// One line's places, or its properties.
struct Part {
  bool isPlaces = false;
  bool areTimesInBrackets = false;
  bool isUsed = false;
  List<GeoJSONPosition> places;
  List<double> times;
  GeoJSONFigures figures;
};

class Finder {
  static constexpr std::size_t kMostParts = 10'000;

 public:
  Finder(std::string_view text, Track& track) : text_(text), track_(track) {}

  void read() {
    while (at_ < text_.size() && found_ < kMostTrackPoints && parts_.size() < kMostParts) {
      const bool isFound = text_[at_] == '[' ? takePlace() : text_[at_] == '"' && takeText();
      if (isFound) continue;
      beforePlace_.take(text_[at_]);
      beforeTime_.take(text_[at_]);
      if (!isSpace(text_[at_])) last_ = text_[at_];
      ++at_;
    }
    join();
  }

 private:
  void skipSpace(std::size_t& at) const {
    while (at < text_.size() && isSpace(text_[at])) ++at;
  }

  /// A number and the character behind it; nothing for none.
  std::optional<double> number(std::size_t& at) const {
    constexpr std::size_t kMostDigits = 400;  // of what a double can need
    skipSpace(at);
    const std::size_t begin = at;
    const auto isPart = [](char c) {
      return (c >= '0' && c <= '9') || c == '-' || c == '+' || c == '.' || c == 'e' || c == 'E';
    };
    while (at < text_.size() && at - begin < kMostDigits && isPart(text_[at])) ++at;
    const auto value = platform::doubleFromText(text_.substr(begin, at - begin));
    skipSpace(at);
    return value;
  }

  /// "[", two to four numbers, "]". Directly behind a name stand other numbers, such as a box.
  bool takePlace() {
    constexpr std::size_t kMostNumbers = 4;
    if (last_ == ':') return false;
    std::size_t at = at_, count = 0;
    double numbers[3] = {kNone, kNone, kNone};
    do {
      ++at;
      const auto value = number(at);
      if (!value || at == text_.size()) return false;
      if (count < 3) numbers[count] = *value;
      ++count;
    } while (text_[at] == ',' && count < kMostNumbers);
    if (text_[at] != ']' || count < 2) return false;
    if (beforePlace_.isBoundary) {
      parts_.emplace_back().isPlaces = true;
      places_ = parts_.size() - 1;
    }
    List<GeoJSONPosition>& places = parts_[places_].places;
    taken(places.add({numbers[0], numbers[1], numbers[2]}, beforePlace_, true, room()), at + 1);
    places.isEnded = endsBehind(at_);
    beforePlace_ = {.isBoundary = false};
    beforeTime_.isBoundary = true;
    return true;
  }

  /// A time, or the name of figures.
  bool takeText() {
    constexpr std::size_t kMostText = 48;
    const std::size_t length = text_.substr(at_ + 1, kMostText).find('"');
    if (length == text_.npos) return false;
    const std::string_view inside = text_.substr(at_ + 1, length);
    const auto* name =
        std::ranges::find(kGeoJSONFigureNames, inside, [](auto& n) { return n.first; });
    if (name != std::end(kGeoJSONFigureNames)) return takeFigures(name->second, at_ + length + 2);
    const auto time = timeFromText(inside);
    if (!time) return false;
    if (beforeTime_.isBoundary) beginTimes();
    List<double>& times = parts_.back().times;
    taken(times.add(platform::timeIntervalSince1970(*time), beforeTime_, false, room()),
          at_ + length + 2);
    times.isEnded = endsBehind(at_);
    beforeTime_ = {.isBoundary = false};
    beforePlace_.isBoundary = true;
    return true;
  }

  Part& properties() {
    if (parts_.empty() || parts_.back().isPlaces) parts_.emplace_back();
    return parts_.back();
  }

  void beginTimes() {
    Part* part = &properties();
    // A single time, such as that of the whole line, is no list.
    const bool isList = part->areTimesInBrackets || part->times.items.size() > 1;
    if (isList && !part->times.items.empty()) part = &parts_.emplace_back();
    part->times = {};
    part->areTimesInBrackets = last_ == '[';
  }

  bool takeFigures(std::size_t figure, std::size_t at) {
    skipSpace(at);
    if (text_.substr(at, 1) != ":") return false;
    skipSpace(++at);
    if (text_.substr(at, 1) != "[") return false;
    std::vector<double>& values = properties().figures[figure];
    values.clear();
    beforePlace_.isBoundary = beforeTime_.isBoundary = true;
    do {
      const std::size_t begin = ++at;
      at = std::min(text_.find_first_of(",]\"{", begin), text_.size());
      if (at == text_.size()) break;  // It may be cut itself.
      std::size_t end = begin;
      const auto value = number(end);
      values.push_back(value && end == at ? *value : kNone);
    } while (text_[at] == ',' && values.size() < kMostTrackPoints);
    at_ = at;
    last_ = '\0';
    return true;
  }

  [[nodiscard]] std::size_t room() const { return kMostTrackPoints - found_; }

  /// Whether a list ends behind an item.
  [[nodiscard]] bool endsBehind(std::size_t at) const {
    skipSpace(at);
    return at < text_.size() && text_[at] == ']';
  }

  void taken(std::size_t items, std::size_t next) {
    at_ = next;
    last_ = '\0';
    found_ += items;
  }

  /// Puts places and times together: those of equal length beside each other, else those that can
  /// only belong together.
  void join() {
    const auto places = std::ranges::count_if(parts_, [](auto& part) { return part.isPlaces; });
    const bool isOnlyLine = places == 1;
    // A document has a line's times before its places throughout, or behind them.
    const auto matches = [&](std::size_t step) {
      std::size_t count = 0;
      for (std::size_t i = 0; i < parts_.size(); ++i) {
        const std::size_t beside = i + step;
        count += !parts_[i].isPlaces && !parts_[i].times.items.empty() && beside < parts_.size() &&
                 parts_[beside].isPlaces &&
                 parts_[beside].places.items.size() == parts_[i].times.items.size();
      }
      return count;
    };
    constexpr std::size_t kBefore = static_cast<std::size_t>(-1);
    const std::size_t side = matches(1) > matches(kBefore) ? 1 : kBefore;
    for (std::size_t i = 0; i < parts_.size(); ++i) {
      Part& properties = parts_[i];
      const List<double>& times = properties.times;
      if (properties.isPlaces || times.items.empty()) continue;
      Part* chosen = nullptr;
      for (const std::size_t step : {side, std::size_t{0} - side}) {
        const std::size_t beside = i + step;
        if (beside >= parts_.size()) continue;
        Part& line = parts_[beside];
        if (!line.isPlaces || line.isUsed) continue;
        if (line.places.items.size() == times.items.size()) {
          chosen = &line;
          break;
        }
        const std::size_t count = line.places.items.size(), other = times.items.size();
        const bool areNear = std::max(count, other) - std::min(count, other) <= 2;
        const bool areWhole = times.isWhole && line.places.isWhole;
        const bool mayDiffer = isOnlyLine || areNear || !areWhole || i + 1 == parts_.size();
        if (mayDiffer) chosen = &line;
        break;  // Beyond it lie another line's.
      }
      if (chosen == nullptr) continue;
      chosen->isUsed = true;
      add(chosen->places, times, properties.figures);
    }
    for (const Part& part : parts_) {
      if (part.isPlaces && !part.isUsed) track_.skipped += part.places.items.size();
    }
  }

  void add(const List<GeoJSONPosition>& places, const List<double>& times,
           const GeoJSONFigures& figures) {
    const std::size_t count = places.items.size(), timeCount = times.items.size();
    const std::size_t both = std::min(count, timeCount);
    std::size_t front = both, behind = 0;
    if (count != timeCount) {
      const bool areWhole = places.isWhole && times.isWhole;
      const bool areEnded = places.isEnded && times.isEnded;
      front = std::min({both, places.isWhole ? count : places.inFront,
                        times.isWhole ? timeCount : times.inFront});
      // Nobody knows which one is missing of lists without damage.
      if (areWhole && areEnded) front = 0;
      if (!areWhole && areEnded) behind = std::min({both - front, places.behind, times.behind});
    }
    const auto keepPoint = [&](std::size_t place, std::size_t time, std::size_t fromEnd) {
      std::array<double, kGeoJSONFigures> own;
      for (std::size_t i = 0; i < own.size(); ++i) {
        const std::vector<double>& all = figures[i];
        const std::size_t index = fromEnd == 0 ? place : all.size() - fromEnd;
        const bool isThere = index < all.size() && (fromEnd == 0 || all.size() >= both);
        own[i] = isThere ? all[index] : kNone;
      }
      keep(track_, places.items[place], times.items[time], own);
    };
    for (std::size_t i = 0; i < front; ++i) keepPoint(i, i, 0);
    for (std::size_t left = behind; left > 0; --left) {
      keepPoint(count - left, timeCount - left, left);
    }
    track_.skipped += std::max(count, timeCount) - front - behind;
  }

  std::string_view text_;
  Track& track_;
  std::size_t at_ = 0, found_ = 0;
  char last_ = '\0';  ///< The last character that is no space, no item's.
  Gap beforePlace_, beforeTime_;
  std::vector<Part> parts_;
  std::size_t places_ = 0;  ///< The part that the next place goes to.
};

}  // namespace

void readDamagedGeoJSON(std::string_view document, Track& track) { Finder(document, track).read(); }

}  // namespace ombrix::detail
