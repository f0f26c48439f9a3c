#include "OmbrixPlatform/Coding/Streams/JSONReader.hpp"

#include <fmt/format.h>

#include <array>
#include <charconv>
#include <cmath>
#include <cstring>

#include "OmbrixPlatform/Coding/Detail/JSONDocument.hpp"
#include "OmbrixPlatform/Coding/Detail/JSONIndex.hpp"
#include "OmbrixPlatform/Coding/Detail/JSONTree.hpp"
#include "OmbrixPlatform/Coding/Detail/Numbers.hpp"
#include "OmbrixPlatform/Detail/DecimalToDouble.hpp"
#include "OmbrixPlatform/Detail/TextForms.hpp"
#include "OmbrixPlatform/Detail/Utf.hpp"

namespace ombrix::platform {
namespace {

bool isWhiteSpace(char c) noexcept { return c == ' ' || c == '\n' || c == '\r' || c == '\t'; }
bool isDigit(char c) noexcept { return static_cast<unsigned char>(c - '0') < 10; }

bool hasBackslash(const char* at, std::size_t size) noexcept {
  constexpr std::uint64_t kOnes = 0x0101010101010101U;
  constexpr std::uint64_t kHighs = 0x8080808080808080U;
  std::uint64_t word = 0;
  for (; size >= 8; at += 8, size -= 8) {
    std::memcpy(&word, at, 8);
    word ^= kOnes * '\\';
    if (((word - kOnes) & ~word & kHighs) != 0) return true;
  }
  for (; size > 0; ++at, --size) {
    if (*at == '\\') return true;
  }
  return false;
}

// What may follow a scalar.
constexpr std::array<bool, 256> kEndsScalar = [] {
  std::array<bool, 256> table{};
  for (const char c : {' ', '\t', '\n', '\r', ',', ']', '}'}) {
    table[static_cast<unsigned char>(c)] = true;
  }
  return table;
}();
constexpr std::ptrdiff_t kLongestPlainNumber = 32;  // and the words that are loaded behind it

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
    : options_(options),
      text_(textOf(bytes).data()),
      textEnd_(text_ + bytes.size()),
      index_(std::make_unique<detail::JSONIndex>(textOf(bytes))) {
  if (index_->error() != nullptr) malformed(index_->error());
  at_ = index_->begin();
  last_ = index_->end();
}

JSONReader::JSONReader(const detail::JSONDocument& document, std::uint32_t token,
                       const CodingPath& path)
    : options_(&document.options),
      text_(document.text.data()),
      textEnd_(text_ + document.text.size()),
      at_(document.tokens.data() + token),
      last_(document.tokens.data() + document.tokens.size()),
      path_(path) {}

JSONReader::~JSONReader() = default;

const JSONCodingOptions& JSONReader::options() const noexcept {
  static const JSONCodingOptions* const kDefaults = new JSONCodingOptions;
  return options_ == nullptr ? *kDefaults : *options_;
}

void JSONReader::malformed(const char* what) const {
  const auto offset = at_ == nullptr ? 0 : at_ < last_ ? *at_ : textEnd_ - text_;
  throw DecodingError::dataCorrupted(
      fmt::format("The data is not valid JSON: {} (byte {})", what, offset), codingPath());
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

void JSONReader::misfit(std::string_view number) const {
  constexpr std::size_t kShown = 40;
  throw DecodingError::dataCorrupted(
      fmt::format("The number {} does not fit", number.substr(0, kShown)), codingPath());
}

// A scalar ends at white space, a bracket, a comma or the end of the text.
void JSONReader::checkScalarEnd(const char* end) const {
  if (end == textEnd_ || isWhiteSpace(*end) || *end == ',' || *end == '}' || *end == ']') return;
  malformed("a value cannot be read");
}

bool JSONReader::takeWord(std::string_view word) {
  const char* start = text_ + *at_;
  if (!std::string_view(start, textEnd_).starts_with(word)) malformed("a value cannot be read");
  checkScalarEnd(start + word.size());
  ++at_;
  return true;
}

bool JSONReader::readNull() { return peek() == 'n' && takeWord("null"); }

bool JSONReader::readBool() {
  if (peek() == 't') return takeWord("true");
  if (peek() == 'f') return !takeWord("false");
  mismatch("a truth value");
}

// Scans without looking for the end: a token that follows ends the number first, and the last token
// of the text is copied to where a NUL ends it.
JSONReader::Scan JSONReader::scanNumber(std::string_view expected) {
  const char* at = text_ + (at_ < last_ ? *at_ : 0);
  if (const char c = peek(); c != '-' && !isDigit(c)) mismatch(expected);
  const bool isLast = at_ + 1 == last_;
  if (isLast) {
    scratch_.assign(at, textEnd_);
    at = scratch_.c_str();
  }
  Scan scan;
  const char* start = at;
  const auto digits = [&] {
    const char* first = at;
    for (; isDigit(*at); ++at) {
      scan.mantissa = scan.mantissa * 10 + static_cast<std::uint64_t>(*at - '0');
    }
    if (at == first) malformed("a number cannot be read");
    return static_cast<int>(std::min<std::ptrdiff_t>(at - first, 1'000'000));
  };
  if (*at == '-') {
    scan.negative = true;
    ++at;
  }
  const char* whole = at;
  scan.digits = digits();
  if (*whole == '0' && scan.digits > 1) malformed("a number has leading zeros");
  if (*at == '.') {
    ++at;
    const int fraction = digits();
    scan.digits += fraction;
    scan.exponent = -fraction;
    scan.isInteger = false;
  }
  if (*at == 'e' || *at == 'E') {
    ++at;
    const bool down = *at == '-';
    if (down || *at == '+') ++at;
    const std::uint64_t mantissa = scan.mantissa;
    scan.mantissa = 0;
    const int size = digits();
    const auto power = size > 9 ? 1'000'000'000 : static_cast<std::int64_t>(scan.mantissa);
    scan.mantissa = mantissa;
    scan.exponent += down ? -power : power;
    scan.isInteger = false;
  }
  scan.text = {start, at};
  checkScalarEnd(isLast ? text_ + *at_ + (at - start) : at);
  ++at_;
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
  // What is too small for a double rounds to zero.
  const auto number = detail::readDecimal(scan.text);
  if (number.fit == detail::NumberFit::tooLarge) misfit(scan.text);
  return number.value;
}

// A decimal of usual length, read eight digits at a time. Takes nothing when it gives false.
bool JSONReader::readPlainReal(double& value) noexcept {
  using detail::digitsValue, detail::leadingDigitCount, detail::loadEightBytes;
  if constexpr (!detail::kWordsAreLittleEndian) return false;
  if (last_ - at_ < 2) return false;
  const char* at = text_ + *at_;
  if (textEnd_ - at < kLongestPlainNumber) return false;
  const bool negative = *at == '-';
  if (negative) ++at;
  std::uint64_t word = loadEightBytes(at);
  const unsigned whole = leadingDigitCount(word);
  if (whole == 0 || whole == 8 || (*at == '0' && whole > 1)) return false;
  std::uint64_t mantissa = digitsValue(word, whole);
  at += whole;
  unsigned fraction = 0;
  if (*at == '.') {
    word = loadEightBytes(++at);
    fraction = leadingDigitCount(word);
    if (fraction == 0) return false;
    mantissa = mantissa * detail::kIntegerPowersOf10[fraction] + digitsValue(word, fraction);
    at += fraction;
    if (fraction == 8) {
      word = loadEightBytes(at);
      const unsigned more = leadingDigitCount(word);
      if (whole + fraction + more > 19 || more == 8) return false;
      if (more > 0) {
        mantissa = mantissa * detail::kIntegerPowersOf10[more] + digitsValue(word, more);
      }
      at += more;
      fraction += more;
    }
  }
  if (!kEndsScalar[static_cast<unsigned char>(*at)]) return false;
  ++at_;
  value = detail::decimalToDouble(mantissa, -static_cast<int>(fraction));
  if (negative) value = -value;
  return true;
}

bool JSONReader::readPlainInteger(std::int64_t& value) noexcept {
  if (last_ - at_ < 2) return false;
  const char* at = text_ + *at_;
  const bool negative = *at == '-';
  if (negative) ++at;
  const char* start = at;
  std::int64_t magnitude = 0;
  // The token that follows ends the digits.
  for (; isDigit(*at); ++at) {
    if (at - start == 18) return false;
    magnitude = magnitude * 10 + (*at - '0');
  }
  if (at == start || (*start == '0' && at - start > 1)) return false;
  if (!kEndsScalar[static_cast<unsigned char>(*at)]) return false;
  ++at_;
  value = negative ? -magnitude : magnitude;
  return true;
}

std::int64_t JSONReader::readInteger() {
  if (std::int64_t value = 0; readPlainInteger(value)) [[likely]]
    return value;
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
  misfit(scan.text);
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
  misfit(scan.text);
}

double JSONReader::readReal() {
  if (double value = 0; readPlainReal(value)) [[likely]]
    return value;
  if (peek() == '"' && options().nonConformingFloats) {
    const std::string_view text = readText();
    if (const auto value = detail::realFromText(text, options())) return *value;
    throw DecodingError::dataCorrupted("Not a number: " + detail::quoted(text), codingPath());
  }
  return realOf(scanNumber("a number"));
}

// The next token shows where a text ends: its closing quote is the last character before it that is
// no white space.
std::string_view JSONReader::takeText() {
  const char* start = text_ + *at_ + 1;
  ++at_;
  const char* end = at_ < last_ ? text_ + *at_ : textEnd_;
  while (end > start && isWhiteSpace(end[-1])) --end;
  --end;
  if (end < start || *end != '"') malformed("a text cannot be read");
  const std::string_view raw{start, end};
  return hasBackslash(raw.data(), raw.size()) ? unescaped(raw) : raw;
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
  for (std::size_t i = 0; i < raw.size(); ++i) {
    if (raw[i] != '\\') {
      scratch_.push_back(raw[i]);
      continue;
    }
    switch (++i < raw.size() ? raw[i] : '\0') {
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
  return scratch_;
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
  throw DecodingError::dataCorrupted("Not a date: " + detail::quoted(text), codingPath());
}

void JSONReader::descend() {
  if (++depth_ > kMaxJSONDepth) malformed("it is nested too deep");
  ++at_;
  first_ = true;
}

void JSONReader::beginObject() {
  if (peek() != '{') mismatch("a dictionary");
  descend();
}

bool JSONReader::nextKey(std::string_view& key) {
  if (peek() == '}') {
    ++at_, --depth_;
    first_ = false;
    return false;
  }
  if (!first_) {
    if (peek() != ',') malformed("a comma is missing");
    ++at_;
  }
  first_ = false;
  if (peek() != '"') malformed("a key is missing");
  key = takeText();
  if (peek() != ':') malformed("a colon is missing");
  ++at_;
  return true;
}

void JSONReader::beginArray() {
  if (peek() != '[') mismatch("an array");
  descend();
}

bool JSONReader::firstOrNoItem(char c) {
  if (c == ']') {
    ++at_, --depth_;
    first_ = false;
    return false;
  }
  if (!first_) malformed("a comma is missing");
  first_ = false;
  return true;
}

void JSONReader::skip() {
  std::string_view key;
  switch (peek()) {
    case '{':
      for (beginObject(); nextKey(key);) skip();
      break;
    case '[':
      for (beginArray(); nextItem();) skip();
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
}

std::uint32_t JSONReader::skipIn(const detail::JSONDocument& document) {
  const auto token = static_cast<std::uint32_t>(at_ - document.tokens.data());
  at_ = document.tokens.data() + document.behind[token];
  return token;
}

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
  const std::uint32_t* start = at_;
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
  const auto token = static_cast<std::uint32_t>(at_ - index_->begin());
  if (document_ == nullptr) {
    document_ = detail::checkedDocument({text_, textEnd_}, {index_->begin(), last_}, options());
  }
  at_ = index_->begin() + document_->behind[token];
  return detail::makeTreeDecoder<detail::JSONTokens>(document_, token, codingPath());
}

void JSONReader::startOver() const {
  throw DecodingError::dataCorrupted("The value cannot be judged in one pass", codingPath());
}

void JSONReader::finish() {
  if (at_ != last_) malformed("something follows the value");
}

}  // namespace ombrix::platform
