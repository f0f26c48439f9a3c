#include "OmbrixPlatform/Coding/Streams/JSONWriter.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>

#include "OmbrixPlatform/Coding/Detail/JSONText.hpp"
#include "OmbrixPlatform/Coding/Detail/JSONTree.hpp"
#include "OmbrixPlatform/Coding/Detail/Numbers.hpp"
#include "OmbrixPlatform/Coding/Streams/JSONReader.hpp"
#include "OmbrixPlatform/Detail/TextForms.hpp"
#include "OmbrixPlatform/Detail/Utf.hpp"

namespace ombrix::platform {
namespace {

constexpr std::size_t kFirstCapacity = 1024;
constexpr std::size_t kLongestNumber = 32;
constexpr std::size_t kLongestEscape = 6;

}  // namespace

JSONWriter::JSONWriter(const JSONCodingOptions* options) : options_(options) {}

const JSONCodingOptions& JSONWriter::options() const noexcept {
  static const JSONCodingOptions* const kDefaults = new JSONCodingOptions;
  return options_ == nullptr ? *kDefaults : *options_;
}

void JSONWriter::grow(std::size_t size) {
  const auto used = static_cast<std::size_t>(at_ - buffer_.get());
  const auto capacity = static_cast<std::size_t>(limit_ - buffer_.get());
  const std::size_t larger = std::max({kFirstCapacity, capacity * 2, used + size});
  auto buffer = std::make_unique_for_overwrite<char[]>(larger);
  if (used > 0) std::memcpy(buffer.get(), buffer_.get(), used);
  buffer_ = std::move(buffer);
  at_ = buffer_.get() + used;
  limit_ = buffer_.get() + larger;
}

void JSONWriter::raw(std::string_view text) {
  reserve(text.size() + 1);
  std::memcpy(at_, text.data(), text.size());
  at_ += text.size();
  *at_++ = ',';
}

void JSONWriter::null() { raw("null"); }
void JSONWriter::boolean(bool value) { raw(value ? "true" : "false"); }

void JSONWriter::integer(std::int64_t value) {
  reserve(kLongestNumber);
  at_ = std::to_chars(at_, limit_, value).ptr;
  *at_++ = ',';
}

void JSONWriter::unsignedInteger(std::uint64_t value) {
  reserve(kLongestNumber);
  at_ = std::to_chars(at_, limit_, value).ptr;
  *at_++ = ',';
}

void JSONWriter::real(double value) {
  constexpr double kExactBelow = 9'007'199'254'740'992.0;  // 2^53
  if (std::fabs(value) < kExactBelow) {
    // Whole numbers without "e+05" and the like.
    const auto whole = static_cast<std::int64_t>(value);
    if (static_cast<double>(whole) == value && (whole != 0 || !std::signbit(value))) {
      return integer(whole);
    }
  } else if (!std::isfinite(value)) {
    if (const auto form = detail::textFromReal(value, options())) return text(*form);
    throw EncodingError::invalidValue("JSON has no form for a number that is not finite",
                                      codingPath());
  }
  reserve(kLongestNumber);
  at_ = detail::putShortest(at_, value);
  *at_++ = ',';
}

void JSONWriter::escape(unsigned char c) {
  constexpr std::string_view kHex = "0123456789abcdef";
  *at_++ = '\\';
  switch (c) {
    case '"':
      *at_++ = '"';
      return;
    case '\\':
      *at_++ = '\\';
      return;
    case '\b':
      *at_++ = 'b';
      return;
    case '\f':
      *at_++ = 'f';
      return;
    case '\n':
      *at_++ = 'n';
      return;
    case '\r':
      *at_++ = 'r';
      return;
    case '\t':
      *at_++ = 't';
      return;
    default:
      break;
  }
  std::memcpy(at_, "u00", 3);
  at_[3] = kHex[c >> 4];
  at_[4] = kHex[c & 0xF];
  at_ += 5;
}

void JSONWriter::quoted(std::string_view text, char behind) {
  reserve(text.size() + 8 + 3);
  *at_++ = '"';
  const char* from = text.data();
  const char* end = from + text.size();
  // Eight bytes at a time as long as they are plain, which most texts are to their end.
  for (std::uint64_t word = 0; end - from >= 8; from += 8, at_ += 8) {
    std::memcpy(&word, from, 8);
    if ((detail::notPlain(word) | (word & detail::kNoAscii)) != 0) break;
    std::memcpy(at_, &word, 8);
  }
  bool isAscii = true;
  for (; from != end; ++from) {
    const auto c = static_cast<unsigned char>(*from);
    isAscii = isAscii && c < 0x80;
    if (!detail::kNotPlain[c]) {
      *at_++ = *from;
    } else {
      reserve(kLongestEscape * static_cast<std::size_t>(end - from) + 3);
      escape(c);
    }
  }
  if (!isAscii && !detail::isValidUtf8(text)) {
    throw EncodingError::invalidValue("A text is not valid UTF-8", codingPath());
  }
  *at_++ = '"';
  *at_++ = behind;
}

void JSONWriter::text(std::string_view value) { quoted(value, ','); }
void JSONWriter::key(std::string_view name) { quoted(name, ':'); }

void JSONWriter::data(DataView value) {
  std::string form;
  detail::appendBase64(form, value);
  text(form);
}

void JSONWriter::date(Date value) {
  if (options().dateStrategy != JSONDateStrategy::iso8601) {
    return real(detail::numberFromDate(value, options()));
  }
  const std::string form = detail::iso8601Text(value);
  if (form.empty()) {
    throw EncodingError::invalidValue("The date has no ISO 8601 form", codingPath());
  }
  text(form);
}

void JSONWriter::open(char bracket) {
  if (++depth_ > kMaxJSONDepth) {
    throw EncodingError::invalidValue("The value is nested too deep", codingPath());
  }
  reserve(1);
  *at_++ = bracket;
}

void JSONWriter::close(char bracket) {
  --depth_;
  reserve(2);
  if (at_[-1] == ',') --at_;
  *at_++ = bracket;
  *at_++ = ',';
}

void JSONWriter::json(const JSON& value) {
  switch (value.kind()) {
    case JSON::Kind::null:
      return null();
    case JSON::Kind::boolean:
      return boolean(*value.boolean());
    case JSON::Kind::text:
      return text(*value.string());
    case JSON::Kind::array:
      beginArray();
      for (const JSON& item : *value.array()) json(item);
      return endArray();
    case JSON::Kind::dictionary:
      beginObject();
      for (const auto& [name, item] : *value.dictionary()) {
        key(name);
        json(item);
      }
      return endObject();
    case JSON::Kind::number:
      break;
  }
  const auto whole = value.integer();
  const bool isMinusZero = whole == 0 && std::signbit(*value.real());
  if (whole && !isMinusZero) return integer(*whole);
  if (const auto large = value.unsignedInteger(); large && !isMinusZero) {
    return unsignedInteger(*large);
  }
  real(*value.real());
}

void JSONWriter::writeWith(void (*encode)(Encoder&, const void*), const void* value) {
  json(detail::encodeTree<detail::JSONTree>(options(), codingPath(), encode, value));
}

Data JSONWriter::finish() {
  const auto* first = reinterpret_cast<const std::byte*>(buffer_.get());
  const auto size = at_ == nullptr ? 0 : at_ - buffer_.get() - 1;
  Data out(first, first + size);
  const JSONCodingOptions* kept = options_;
  *this = JSONWriter(kept);
  return out;
}

}  // namespace ombrix::platform
