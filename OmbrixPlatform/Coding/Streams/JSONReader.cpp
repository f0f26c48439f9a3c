#include "OmbrixPlatform/Coding/Streams/JSONReader.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <limits>

#include "OmbrixPlatform/Coding/Detail/JSONDocument.hpp"
#include "OmbrixPlatform/Coding/Detail/JSONText.hpp"
#include "OmbrixPlatform/Coding/Detail/JSONTree.hpp"
#include "OmbrixPlatform/Coding/Detail/Numbers.hpp"
#include "OmbrixPlatform/Detail/DecimalToDouble.hpp"
#include "OmbrixPlatform/Detail/TextForms.hpp"
#include "OmbrixPlatform/Detail/Utf.hpp"

namespace ombrix::platform {
namespace {

bool isWhiteSpace(char c) noexcept { return c == ' ' || c == '\n' || c == '\r' || c == '\t'; }
bool isDigit(char c) noexcept { return static_cast<unsigned char>(c - '0') < 10; }

// What may follow a scalar.
constexpr std::array<bool, 256> kEndsScalar = [] {
  std::array<bool, 256> table{};
  for (const char c : {' ', '\t', '\n', '\r', ',', ']', '}'}) {
    table[static_cast<unsigned char>(c)] = true;
  }
  return table;
}();
bool endsScalar(char c) noexcept { return kEndsScalar[static_cast<unsigned char>(c)]; }

constexpr std::ptrdiff_t kLongestPlainNumber = 32;  // and the words that are loaded after it

// The end of a decimal of usual length, read eight digits at a time; null for any other number.
// As many bytes as said above can be loaded.
[[gnu::always_inline]] inline const char* plainReal(const char* at, double& value) noexcept {
  using detail::digitsValue, detail::leadingDigitCount, detail::loadEightBytes;
  const bool negative = *at == '-';
  at += negative;
  std::uint64_t word = loadEightBytes(at);
  const unsigned whole = leadingDigitCount(word);
  if (whole == 0 || whole == 8 || (*at == '0' && whole > 1)) return nullptr;
  std::uint64_t digits = digitsValue(word, whole);
  at += whole;
  unsigned fraction = 0;
  if (*at == '.') {
    word = loadEightBytes(++at);
    fraction = leadingDigitCount(word);
    if (fraction == 0) return nullptr;
    // Microdegrees have a branch of their own: if the processor predicts it, it goes on without
    // waiting for the count.
    if (fraction == 6) {
      digits = digits * 1'000'000 + digitsValue(word, 6);
      at += 6;
    } else {
      digits = digits * detail::kIntegerPowersOf10[fraction] + digitsValue(word, fraction);
      at += fraction;
    }
    if (fraction == 8) {
      word = loadEightBytes(at);
      const unsigned more = leadingDigitCount(word);
      if (whole + fraction + more > 19 || more == 8) return nullptr;
      if (more > 0) digits = digits * detail::kIntegerPowersOf10[more] + digitsValue(word, more);
      at += more;
      fraction += more;
    }
  }
  if (!endsScalar(*at)) return nullptr;
  value = detail::decimalToDouble(digits, -static_cast<int>(fraction));
  if (negative) value = -value;
  return at;
}

// The same for an integer of at most 15 digits.
[[gnu::always_inline]] inline const char* plainInteger(const char* at,
                                                       std::int64_t& value) noexcept {
  using detail::digitsValue, detail::leadingDigitCount, detail::loadEightBytes;
  const bool negative = *at == '-';
  at += negative;
  std::uint64_t word = loadEightBytes(at);
  const unsigned count = leadingDigitCount(word);
  if (count == 0 || (*at == '0' && count > 1)) return nullptr;
  std::uint64_t digits = digitsValue(word, count);
  at += count;
  if (count == 8) {
    word = loadEightBytes(at);
    const unsigned more = leadingDigitCount(word);
    if (more == 8) return nullptr;
    if (more > 0) digits = digits * detail::kIntegerPowersOf10[more] + digitsValue(word, more);
    at += more;
  }
  if (!endsScalar(*at)) return nullptr;
  value = negative ? -static_cast<std::int64_t>(digits) : static_cast<std::int64_t>(digits);
  return at;
}

}  // namespace

// A number as it stands in the text, its grammar checked.
struct JSONReader::Scan {
  std::string_view text;
  std::uint64_t mantissa = 0;  // all digits; only meant when there are at most 19
  std::int64_t exponent = 0;
  int digits = 0;
  bool negative = false;
  bool isInteger = true;
};

JSONReader::JSONReader(DataView bytes, const JSONCodingOptions* options)
    : options_(options), text_(textOf(bytes).data()), at_(text_), end_(text_ + bytes.size()) {
  if (bytes.size() > std::numeric_limits<std::uint32_t>::max()) malformed("it is too long");
  moveTo(text_);
  if (at_ == end_) malformed("it is empty");
}

JSONReader::JSONReader(const detail::JSONDocument& document, std::uint32_t value,
                       const CodingPath& path)
    : options_(&document.options),
      text_(document.text.data()),
      at_(text_ + document.values[value].begin),
      end_(text_ + document.text.size()),
      path_(path) {}

const JSONCodingOptions& JSONReader::options() const noexcept {
  static const JSONCodingOptions* const kDefaults = new JSONCodingOptions;
  return options_ == nullptr ? *kDefaults : *options_;
}

void JSONReader::malformed(const char* what) const {
  throw DecodingError::dataCorrupted(
      fmt::format("The data is not valid JSON: {} (byte {})", what, at_ - text_), codingPath());
}

void JSONReader::mismatch(std::string_view expected) const {
  const char c = peek();
  JSON::Kind found = JSON::Kind::null;
  switch (c) {
    case 'n':
      throw DecodingError::valueNotFound(expected, codingPath());
    case '{':
      found = JSON::Kind::dictionary;
      break;
    case '[':
      found = JSON::Kind::array;
      break;
    case '"':
      found = JSON::Kind::text;
      break;
    case 't':
    case 'f':
      found = JSON::Kind::boolean;
      break;
    default:
      if (c != '-' && !isDigit(c)) malformed("a value is missing");
      found = JSON::Kind::number;
  }
  throw DecodingError::typeMismatch(expected, nameOf(found), codingPath());
}

void JSONReader::misfit() const {
  throw DecodingError::dataCorrupted("The number does not fit", codingPath());
}

const char* JSONReader::behindBlankRun(const char* at, const char* end) noexcept {
  for (; at != end && isWhiteSpace(*at); ++at) {
    // Lines are indented by spaces, often by many.
    if constexpr (!detail::kWordsAreLittleEndian) continue;
    while (end - at > 8) {
      const std::uint64_t others = detail::loadEightBytes(at + 1) ^ 0x2020202020202020U;
      at += others == 0 ? 8 : std::countr_zero(others) / 8;
      if (others != 0) break;
    }
  }
  return at;
}

// A scalar ends at white space, a bracket, a comma or the end of the text.
void JSONReader::checkScalarEnd(const char* end) const {
  if (end != end_ && !endsScalar(*end)) malformed("a value cannot be read");
}

inline bool JSONReader::takeWord(std::string_view word) {
  if (static_cast<std::size_t>(end_ - at_) < word.size() ||
      std::memcmp(at_, word.data(), word.size()) != 0) {
    malformed("a value cannot be read");
  }
  const char* end = at_ + word.size();
  checkScalarEnd(end);
  moveTo(end);
  return true;
}

bool JSONReader::readNull() { return peek() == 'n' && takeWord("null"); }

bool JSONReader::readBool() {
  if (peek() == 't') return takeWord("true");
  if (peek() == 'f') return !takeWord("false");
  mismatch("a truth value");
}

JSONReader::Scan JSONReader::scanNumber(std::string_view expected) {
  if (const char c = peek(); c != '-' && !isDigit(c)) mismatch(expected);
  const char* at = at_;
  const auto next = [&] { return at != end_ ? *at : '\0'; };
  Scan scan;
  const auto digits = [&] {
    const char* first = at;
    for (; isDigit(next()); ++at) {
      scan.mantissa = scan.mantissa * 10 + static_cast<std::uint64_t>(*at - '0');
    }
    if (at == first) malformed("a number cannot be read");
    return static_cast<int>(std::min<std::ptrdiff_t>(at - first, 1'000'000));
  };
  if (next() == '-') {
    scan.negative = true;
    ++at;
  }
  const char* whole = at;
  scan.digits = digits();
  if (*whole == '0' && scan.digits > 1) malformed("a number has leading zeros");
  if (next() == '.') {
    ++at;
    const int fraction = digits();
    scan.digits += fraction;
    scan.exponent = -fraction;
    scan.isInteger = false;
  }
  if (next() == 'e' || next() == 'E') {
    ++at;
    const bool down = next() == '-';
    if (down || next() == '+') ++at;
    const std::uint64_t mantissa = scan.mantissa;
    scan.mantissa = 0;
    const int size = digits();
    const auto power = size > 9 ? 1'000'000'000 : static_cast<std::int64_t>(scan.mantissa);
    scan.mantissa = mantissa;
    scan.exponent += down ? -power : power;
    scan.isInteger = false;
  }
  scan.text = {at_, at};
  checkScalarEnd(at);
  moveTo(at);
  return scan;
}

double JSONReader::realOf(const Scan& scan) const {
  constexpr int kExactDigits = 19;
  // Zero is zero with any exponent, which the conversion below does not expect.
  if (scan.digits <= kExactDigits && scan.mantissa == 0) return scan.negative ? -0.0 : 0.0;
  if (scan.digits <= kExactDigits && std::abs(scan.exponent) <= detail::kMaximumExponent) {
    const double value = detail::decimalToDouble(scan.mantissa, static_cast<int>(scan.exponent));
    return scan.negative ? -value : value;
  }
  // A number too small for a double rounds to zero.
  const auto number = detail::readDecimal(scan.text);
  if (number.fit == detail::NumberFit::tooLarge) misfit();
  return number.value;
}

std::int64_t JSONReader::readInteger() {
  if (detail::kWordsAreLittleEndian && end_ - at_ >= kLongestPlainNumber) [[likely]] {
    std::int64_t value = 0;
    if (const char* end = plainInteger(at_, value)) [[likely]] {
      moveTo(end);
      return value;
    }
  }
  return readOtherInteger();
}

std::int64_t JSONReader::readOtherInteger() {
  const Scan scan = scanNumber("an integer");
  if (scan.isInteger && scan.digits <= 18) {
    const auto magnitude = static_cast<std::int64_t>(scan.mantissa);
    return scan.negative ? -magnitude : magnitude;
  }
  if (scan.isInteger) {
    std::int64_t value = 0;
    const char* end = scan.text.data() + scan.text.size();
    if (std::from_chars(scan.text.data(), end, value).ec == std::errc{}) return value;
  } else if (const auto value = detail::exactly<std::int64_t>(realOf(scan))) {
    return *value;
  }
  misfit();
}

std::uint64_t JSONReader::readUnsignedInteger() {
  const Scan scan = scanNumber("an integer");
  if (scan.isInteger && scan.digits <= 19 && (!scan.negative || scan.mantissa == 0)) {
    return scan.mantissa;
  }
  if (scan.isInteger) {
    std::uint64_t value = 0;
    const char* end = scan.text.data() + scan.text.size();
    if (std::from_chars(scan.text.data(), end, value).ec == std::errc{}) return value;
  } else if (const auto value = detail::exactly<std::uint64_t>(realOf(scan))) {
    return *value;
  }
  misfit();
}

double JSONReader::readReal() {
  if (detail::kWordsAreLittleEndian && end_ - at_ >= kLongestPlainNumber) [[likely]] {
    double value = 0;
    if (const char* end = plainReal(at_, value)) [[likely]] {
      moveTo(end);
      return value;
    }
  }
  return readOtherReal();
}

double JSONReader::readOtherReal() {
  if (peek() == '"' && options().nonConformingFloats) {
    const std::string_view text = readText();
    if (const auto value = detail::realFromText(text, options())) return *value;
    throw DecodingError::dataCorrupted("Not a number: " + detail::textByLength(text), codingPath());
  }
  return realOf(scanNumber("a number"));
}

inline std::string_view JSONReader::takeText() {
  const char* start = at_ + 1;
  bool mayLeaveAscii = false;
  const char* at = detail::behindPlainText(start, end_, mayLeaveAscii);
  if (at == end_ || *at != '"' || mayLeaveAscii) [[unlikely]]
    return takeOtherText(start, at, mayLeaveAscii);
  moveTo(at + 1);
  return {start, at};
}

// A text that is not plain ASCII; before `at` nothing is escaped.
std::string_view JSONReader::takeOtherText(const char* start, const char* at, bool mayLeaveAscii) {
  bool isEscaped = false;
  while (at != end_ && *at != '"') {
    if (*at != '\\') malformed("a text holds a control character");
    isEscaped = true;
    at = detail::behindPlainText(at + (end_ - at > 1 ? 2 : 1), end_, mayLeaveAscii);
  }
  if (at == end_) malformed("a text is not closed");
  const std::string_view raw{start, at};
  if (mayLeaveAscii && !detail::isValidUtf8(raw)) malformed("it is not UTF-8");
  const std::string_view text = isEscaped ? unescaped(raw) : raw;
  moveTo(at + 1);
  return text;
}

std::string_view JSONReader::unescaped(std::string_view raw) {
  const auto unit = [&](std::size_t i, char32_t& value) {
    unsigned parsed = 0;
    if (raw.size() < i + 4) return false;
    const char* end = raw.data() + i + 4;
    const auto result = std::from_chars(raw.data() + i, end, parsed, 16);
    value = parsed;
    return result.ec == std::errc{} && result.ptr == end;
  };
  scratch_.clear();
  scratch_.reserve(raw.size());
  for (std::size_t i = 0;; ++i) {
    const std::size_t escape = std::min(raw.find('\\', i), raw.size());
    scratch_.append(raw, i, escape - i);
    if (escape == raw.size()) return scratch_;
    i = escape + 1;
    switch (i < raw.size() ? raw[i] : '\0') {
      case '"':
        scratch_.push_back('"');
        break;
      case '\\':
        scratch_.push_back('\\');
        break;
      case '/':
        scratch_.push_back('/');
        break;
      case 'b':
        scratch_.push_back('\b');
        break;
      case 'f':
        scratch_.push_back('\f');
        break;
      case 'n':
        scratch_.push_back('\n');
        break;
      case 'r':
        scratch_.push_back('\r');
        break;
      case 't':
        scratch_.push_back('\t');
        break;
      case 'u': {
        char32_t high = 0;
        char32_t low = 0;
        if (!unit(i + 1, high)) malformed("an escape cannot be read");
        i += 4;
        if (high >= 0xD800 && high <= 0xDFFF) {
          const bool paired = high < 0xDC00 && raw.substr(i + 1).starts_with("\\u") &&
                              unit(i + 3, low) && low >= 0xDC00 && low <= 0xDFFF;
          if (!paired) malformed("a text has an unpaired surrogate");
          i += 6;
          high = 0x10000 + ((high - 0xD800) << 10) + (low - 0xDC00);
        }
        detail::appendUtf8(scratch_, high);
        break;
      }
      default:
        malformed("an escape cannot be read");
    }
  }
}

std::string_view JSONReader::readText() {
  if (peek() != '"') mismatch("a text");
  return takeText();
}

Data JSONReader::readData() {
  if (peek() != '"') mismatch("data as base64 text");
  if (auto data = detail::bytesFromBase64(takeText(), false)) return *std::move(data);
  throw DecodingError::dataCorrupted("The text is not base64", codingPath());
}

Date JSONReader::readDate() {
  if (options().dateStrategy != JSONDateStrategy::iso8601) {
    return detail::dateFromNumber(realOf(scanNumber("a date as a number")), options());
  }
  if (peek() != '"') mismatch("a date as text");
  const std::string_view text = takeText();
  if (const auto date = detail::dateFromISO8601(text)) return *date;
  throw DecodingError::dataCorrupted("Not a date: " + detail::textByLength(text), codingPath());
}

bool JSONReader::takeKey(std::string_view& key) {
  if (!first_) {
    if (peek() != ',') malformed("a comma is missing");
    moveTo(at_ + 1);
  }
  first_ = false;
  if (peek() != '"') malformed("a key is missing");
  key = takeText();
  if (peek() != ':') malformed("a colon is missing");
  moveTo(at_ + 1);
  return true;
}

bool JSONReader::firstOrNoItem() {
  if (peek() == ']') {
    ascend();
    return false;
  }
  if (!first_) malformed("a comma is missing");
  first_ = false;
  return true;
}

void JSONReader::walk(std::vector<detail::JSONExtent>* values) {
  const std::size_t number = values == nullptr ? 0 : values->size();
  if (values != nullptr) values->push_back({.begin = offset()});
  std::string_view key;
  switch (peek()) {
    case '{':
      for (beginObject(); nextKey(key);) walk(values);
      break;
    case '[':
      for (beginArray(); nextItem();) walk(values);
      break;
    case '"':
      takeText();
      break;
    case 'n':
      readNull();
      break;
    case 't':
    case 'f':
      readBool();
      break;
    default:
      scanNumber("a value");
  }
  if (values == nullptr) return;
  (*values)[number].end = offset();
  (*values)[number].next = static_cast<std::uint32_t>(values->size());
}

void JSONReader::skip() { walk(nullptr); }
void JSONReader::list(std::vector<detail::JSONExtent>& values) { walk(&values); }
void JSONReader::skipKnown(const detail::JSONExtent& value) noexcept { at_ = text_ + value.end; }

JSON JSONReader::readJSON() {
  switch (peek()) {
    case '{': {
      JSON::Dictionary entries;
      std::string_view key;
      for (beginObject(); nextKey(key);) {
        std::string name{key};
        entries.set(std::move(name), readJSON());
      }
      return entries;
    }
    case '[': {
      JSON::Array items;
      for (beginArray(); nextItem();) items.push_back(readJSON());
      return items;
    }
    case '"':
      return std::string{takeText()};
    case 'n':
      readNull();
      return {};
    case 't':
    case 'f':
      return readBool();
    default:
      break;
  }
  const Scan scan = scanNumber("a value");
  const bool isMinusZero = scan.negative && scan.mantissa == 0;
  if (scan.isInteger && !isMinusZero) {
    const char* end = scan.text.data() + scan.text.size();
    std::int64_t whole = 0;
    std::uint64_t large = 0;
    if (std::from_chars(scan.text.data(), end, whole).ec == std::errc{}) return whole;
    if (!scan.negative && std::from_chars(scan.text.data(), end, large).ec == std::errc{}) {
      return large;
    }
  }
  return realOf(scan);
}

std::optional<std::string> JSONReader::peekText(std::string_view wanted) {
  const char* start = at_;
  const int depth = depth_;
  const bool first = first_;
  std::optional<std::string> text;
  std::string_view key;
  for (beginObject(); nextKey(key); skip()) {
    if (key != wanted) continue;
    CodingPathChain::Step step(path_);
    step.setKey(wanted);
    if (peek() != 'n') text = readText();
    break;
  }
  at_ = start;
  depth_ = depth;
  first_ = first;
  return text;
}

std::shared_ptr<Decoder> JSONReader::decoder() {
  if (document_ == nullptr) document_ = detail::checkedDocument({text_, end_}, options());
  const auto& values = document_->values;
  const auto value = std::ranges::lower_bound(values, offset(), {}, &detail::JSONExtent::begin);
  if (value == values.end() || value->begin != offset()) malformed("a value is missing");
  const auto number = static_cast<std::uint32_t>(value - values.begin());
  auto decoder = detail::makeTreeDecoder<detail::JSONValues>(document_, number, codingPath());
  skipKnown(*value);
  return decoder;
}

void JSONReader::startOver() const {
  throw DecodingError::dataCorrupted("The value cannot be judged in one pass", codingPath());
}

void JSONReader::finish() {
  if (at_ != end_) malformed("something follows the value");
}

}  // namespace ombrix::platform
