#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixPlatform/Coding/Codable.hpp"
#include "OmbrixPlatform/Coding/JSON.hpp"
#include "OmbrixPlatform/Coding/JSONCodingOptions.hpp"

namespace ombrix::platform {

namespace detail {
struct JSONDocument;
struct JSONExtent;
}  // namespace detail

/// The deepest nesting of containers, in documents read and written.
inline constexpr int kMaxJSONDepth = 512;

/// Reads a JSON document in one pass, as a `CodingReader`, and checks all that it passes.
///
/// Borrows the bytes and the options. Every operation throws `DecodingError`. One thread.
class JSONReader {
 public:
  explicit JSONReader(DataView bytes, const JSONCodingOptions* options = nullptr);
  /// Reads one value of a document, by its number, to which the path leads. Borrows the document.
  JSONReader(const detail::JSONDocument& document, std::uint32_t value, const CodingPath& path);
  JSONReader(const JSONReader&) = delete;
  JSONReader& operator=(const JSONReader&) = delete;

  /// The first byte of the next value ('{', '[', '"', a digit, …), for callers that accept several
  /// kinds of values; zero at the end.
  [[nodiscard]] char peek() const noexcept { return at_ != end_ ? *at_ : '\0'; }

  bool readNull();
  bool readBool();
  std::int64_t readInteger();
  std::uint64_t readUnsignedInteger();
  double readReal();
  std::string_view readText();
  Data readData();
  Date readDate();
  /// Any value, as a tree.
  JSON readJSON();

  void beginObject() {
    if (peek() != '{') [[unlikely]]
      mismatch("a dictionary");
    descend();
  }
  bool nextKey(std::string_view& key) {
    if (peek() != '}') return takeKey(key);
    ascend();
    return false;
  }
  void beginArray() {
    if (peek() != '[') [[unlikely]]
      mismatch("an array");
    descend();
  }
  bool nextItem() {
    if (peek() == ',' && !first_) [[likely]] {
      moveTo(at_ + 1);
      return true;
    }
    return firstOrNoItem();
  }
  void skip();
  /// Skips a value, and adds the places of it and all its contents.
  void list(std::vector<detail::JSONExtent>& values);
  /// Skips a value of the document that the reader was made with, in constant time.
  void skipKnown(const detail::JSONExtent& value) noexcept;
  std::optional<std::string> peekText(std::string_view key);
  /// The first call checks the whole document; the result shares a copy.
  std::shared_ptr<Decoder> decoder();
  [[noreturn]] void startOver() const;

  /// Takes the next key if it is this one, written without escapes; otherwise nothing changes.
  ///
  /// Always inline: of a name that is a constant, the comparison is a few instructions.
  [[gnu::always_inline]] bool tryKey(std::string_view name) noexcept {
    const char* at = at_;
    if (!first_) {
      if (at == end_ || *at != ',') return false;
      at = behindBlanks(at + 1);
    }
    // A name holds no backslash, so the quote ends the key.
    if (static_cast<std::size_t>(end_ - at) < name.size() + 3 || at[0] != '"' ||
        std::memcmp(at + 1, name.data(), name.size()) != 0 || at[name.size() + 1] != '"' ||
        at[name.size() + 2] != ':') {
      return false;
    }
    first_ = false;
    moveTo(at + name.size() + 3);
    return true;
  }

  /// Called after the top value: nothing may follow it.
  void finish();

  [[nodiscard]] CodingPathChain& pathChain() noexcept { return path_; }
  [[nodiscard]] CodingPath codingPath() const { return path_.path(); }

 private:
  struct Scan;

  [[noreturn]] void malformed(const char* what) const;
  [[noreturn]] void mismatch(std::string_view expected) const;
  [[noreturn]] void misfit() const;
  [[nodiscard]] static const char* behindBlankRun(const char* at, const char* end) noexcept;
  [[nodiscard]] const char* behindBlanks(const char* at) const noexcept {
    return at == end_ || static_cast<unsigned char>(*at) > ' ' ? at : behindBlankRun(at, end_);
  }
  void moveTo(const char* at) noexcept { at_ = behindBlanks(at); }
  void descend() {
    if (++depth_ > kMaxJSONDepth) [[unlikely]]
      malformed("it is nested too deep");
    first_ = true;
    moveTo(at_ + 1);
  }
  void ascend() noexcept {
    --depth_;
    first_ = false;
    moveTo(at_ + 1);
  }
  bool firstOrNoItem();
  bool takeKey(std::string_view& key);
  void checkScalarEnd(const char* end) const;
  bool takeWord(std::string_view word);
  double readOtherReal();
  std::int64_t readOtherInteger();
  Scan scanNumber(std::string_view expected);
  double realOf(const Scan& scan) const;
  std::string_view takeText();
  std::string_view takeOtherText(const char* start, const char* at, bool mayLeaveAscii);
  std::string_view unescaped(std::string_view raw);
  void walk(std::vector<detail::JSONExtent>* values);
  [[nodiscard]] std::uint32_t offset() const noexcept {
    return static_cast<std::uint32_t>(at_ - text_);
  }
  [[nodiscard]] const JSONCodingOptions& options() const noexcept;

  const JSONCodingOptions* options_;
  const char* text_;
  const char* at_;  // never at white space
  const char* end_;
  int depth_ = 0;
  bool first_ = false;  // a container was just opened
  std::string scratch_;
  CodingPathChain path_;
  std::shared_ptr<const detail::JSONDocument> document_;  // a copy, once there is a decoder
};

}  // namespace ombrix::platform
