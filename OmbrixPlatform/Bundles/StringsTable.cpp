#include "OmbrixPlatform/Bundles/StringsTable.hpp"

#include <algorithm>

#include "OmbrixPlatform/Detail/Utf.hpp"
#include "OmbrixPlatform/Values/ASCII.hpp"

namespace ombrix::platform {
namespace {

// Marks invalid bytes: it is never valid UTF-8, so an entry that holds it is dropped.
constexpr char kDamage = '\xff';

constexpr bool isHighSurrogate(char32_t unit) noexcept { return unit >= 0xD800 && unit < 0xDC00; }
constexpr bool isLowSurrogate(char32_t unit) noexcept { return unit >= 0xDC00 && unit < 0xE000; }

/// Joins UTF-16 units to UTF-8; an unpaired surrogate counts as damage.
class Utf16Joiner {
 public:
  explicit Utf16Joiner(std::string& out) : out_(out) {}

  void add(char32_t unit) {
    if (high_ != 0 && isLowSurrogate(unit)) {
      detail::appendUtf8(out_, 0x10000 + ((high_ - 0xD800) << 10) + (unit - 0xDC00));
      high_ = 0;
      return;
    }
    finish();
    if (isHighSurrogate(unit)) {
      high_ = unit;
    } else if (isLowSurrogate(unit)) {
      out_.push_back(kDamage);
    } else {
      detail::appendUtf8(out_, unit);
    }
  }

  /// Call it when something other than a unit follows.
  void finish() {
    if (high_ != 0) out_.push_back(kDamage);
    high_ = 0;
  }

 private:
  std::string& out_;
  char32_t high_ = 0;
};

std::string textFromUtf16(DataView bytes, bool isBigEndian) {
  std::string text;
  text.reserve(bytes.size() / 2);
  Utf16Joiner joiner(text);
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
    const auto first = std::to_integer<unsigned>(bytes[i]);
    const auto second = std::to_integer<unsigned>(bytes[i + 1]);
    joiner.add(isBigEndian ? first << 8 | second : second << 8 | first);
  }
  joiner.finish();
  return text;
}

std::string decoded(DataView bytes) {
  const std::string_view text = textOf(bytes);
  if (text.starts_with("\xff\xfe")) return textFromUtf16(bytes.subspan(2), false);
  if (text.starts_with("\xfe\xff")) return textFromUtf16(bytes.subspan(2), true);
  return std::string(text.starts_with("\xef\xbb\xbf") ? text.substr(3) : text);
}

constexpr bool isBare(char c) noexcept {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         std::string_view("_$./:-").find(c) != std::string_view::npos;
}

constexpr bool isOctal(char c) noexcept { return c >= '0' && c <= '7'; }

class Parser {
 public:
  explicit Parser(std::string_view text) : text_(text) {}

  void run(OrderedDictionary<std::string>& texts) {
    while (skipBlanks()) {
      resume_ = at_;
      std::string key;
      std::string value;
      if (entry(key, value)) {
        if (detail::isValidUtf8(key) && detail::isValidUtf8(value)) {
          texts.set(std::move(key), std::move(value));
        }
      } else {
        at_ = std::min(text_.find('\n', resume_), text_.size());
      }
    }
  }

 private:
  [[nodiscard]] bool isAtEnd() const noexcept { return at_ >= text_.size(); }

  bool take(char c) noexcept {
    if (isAtEnd() || text_[at_] != c) return false;
    ++at_;
    return true;
  }

  /// Skips white space and comments; false at the end of the text.
  bool skipBlanks() {
    while (!isAtEnd()) {
      const std::string_view rest = text_.substr(at_);
      if (rest[0] == ' ' || (rest[0] >= '\t' && rest[0] <= '\r')) {
        ++at_;
      } else if (rest.starts_with("//")) {
        at_ = std::min(text_.find('\n', at_), text_.size());
      } else if (rest.starts_with("/*")) {
        const auto end = text_.find("*/", at_ + 2);
        at_ = end == std::string_view::npos ? text_.size() : end + 2;
      } else {
        return true;
      }
      // If the entry around a comment is damaged, parsing resumes after the comment.
      if (rest[0] == '/') resume_ = at_;
    }
    return false;
  }

  bool entry(std::string& key, std::string& value) {
    if (!token(key) || !skipBlanks()) return false;
    if (take('=')) {
      if (!skipBlanks() || !token(value) || !skipBlanks()) return false;
    } else {
      value = key;
    }
    return take(';');
  }

  bool token(std::string& out) {
    const char quote = text_[at_];
    if (quote == '"' || quote == '\'') {
      ++at_;
      return quoted(quote, out);
    }
    const auto begin = at_;
    // "//" and "/*" begin comments, although a word may contain "/".
    while (!isAtEnd() && isBare(text_[at_]) && !text_.substr(at_).starts_with("//") &&
           !text_.substr(at_).starts_with("/*")) {
      ++at_;
    }
    out = text_.substr(begin, at_ - begin);
    return at_ > begin;
  }

  bool quoted(char quote, std::string& out) {
    Utf16Joiner joiner(out);
    while (!isAtEnd()) {
      const char c = text_[at_++];
      if (c == '\\') {
        if (!escape(joiner, out)) return false;
        continue;
      }
      joiner.finish();
      if (c == quote) return true;
      out.push_back(c);
    }
    return false;
  }

  bool escape(Utf16Joiner& joiner, std::string& out) {
    if (isAtEnd()) return false;
    const char c = text_[at_++];
    if (c == 'U' || c == 'u') {
      char32_t unit = 0;
      for (int digit = 0; digit < 4; ++digit, ++at_) {
        const int value = isAtEnd() ? -1 : hexValue(text_[at_]);
        if (value < 0) return false;
        unit = unit << 4 | static_cast<char32_t>(value);
      }
      joiner.add(unit);
      return true;
    }
    joiner.finish();
    if (isOctal(c)) {
      unsigned value = static_cast<unsigned>(c - '0');
      for (int digit = 1; digit < 3 && !isAtEnd() && isOctal(text_[at_]); ++digit, ++at_) {
        value = value << 3 | static_cast<unsigned>(text_[at_] - '0');
      }
      out.push_back(value < 0x80 ? static_cast<char>(value) : kDamage);
      return true;
    }
    constexpr std::string_view kLetters = "abfnrtv";
    constexpr std::string_view kControls = "\a\b\f\n\r\t\v";
    const auto letter = kLetters.find(c);
    out.push_back(letter == std::string_view::npos ? c : kControls[letter]);
    return true;
  }

  std::string_view text_;
  std::size_t at_ = 0;
  std::size_t resume_ = 0;  // where the search for the next line begins after a damaged entry
};

}  // namespace

StringsTable StringsTable::parse(DataView bytes) {
  StringsTable table;
  const std::string text = decoded(bytes);
  Parser(text).run(table.texts_);
  return table;
}

}  // namespace ombrix::platform
