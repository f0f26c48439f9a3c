#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "OmbrixPlatform/Coding/Codable.hpp"
#include "OmbrixPlatform/Coding/JSON.hpp"
#include "OmbrixPlatform/Coding/JSONCodingOptions.hpp"

namespace ombrix::platform {

namespace detail {
class JSONIndex;
struct JSONDocument;
}  // namespace detail

/// Containers may lie this deep in each other, in documents read and written.
inline constexpr int kMaxJSONDepth = 512;

/// Reads a JSON document in one go, in the manner of `CodingReader`, checking all of it.
///
/// Borrows the bytes and the options. Every operation throws `DecodingError`. One thread.
class JSONReader {
 public:
  explicit JSONReader(DataView bytes, const JSONCodingOptions* options = nullptr);
  /// Reads the value at a token of a document, to which the path leads. Borrows the document.
  JSONReader(const detail::JSONDocument& document, std::uint32_t token, const CodingPath& path);
  ~JSONReader();
  JSONReader(const JSONReader&) = delete;
  JSONReader& operator=(const JSONReader&) = delete;

  /// The first byte of what comes next ('{', '[', '"', a digit, …), for those who take several
  /// kinds of values; zero at the end.
  [[nodiscard]] char peek() const noexcept { return at_ < last_ ? text_[*at_] : '\0'; }

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

  void beginObject();
  bool nextKey(std::string_view& key);
  void beginArray();
  bool nextItem() {
    const char c = peek();
    if (c == ',' && !first_) [[likely]] {
      ++at_;
      return true;
    }
    return firstOrNoItem(c);
  }
  void skip();
  /// Skips in no time a value of the document that the reader was made with; gives its token.
  std::uint32_t skipIn(const detail::JSONDocument& document);
  std::optional<std::string> peekText(std::string_view key);
  /// Checks the whole document when it is called for the first time; what it gives shares a copy.
  std::shared_ptr<Decoder> decoder();
  [[noreturn]] void startOver() const;

  /// Takes the next key if it is this one, written without escapes; else nothing changes.
  bool tryKey(std::string_view name) noexcept {
    const std::uint32_t* at = at_;
    if (last_ - at < 4) return false;
    if (!first_ && text_[*at++] != ',') return false;
    // The token behind a key is its colon. A name holds no backslash, so the quote ends the key.
    const char* key = text_ + at[0] + 1;
    if (at[1] - at[0] < name.size() + 2 || key[-1] != '"' || key[name.size()] != '"' ||
        std::memcmp(key, name.data(), name.size()) != 0 || text_[at[1]] != ':') {
      return false;
    }
    first_ = false;
    at_ = at + 2;
    return true;
  }

  /// To be called after the top value: nothing may follow it.
  void finish();

  [[nodiscard]] CodingPathChain& pathChain() noexcept { return path_; }
  [[nodiscard]] CodingPath codingPath() const { return path_.path(); }

 private:
  struct Scan;

  [[noreturn]] void malformed(const char* what) const;
  [[noreturn]] void mismatch(std::string_view expected) const;
  [[noreturn]] void misfit(std::string_view number) const;
  void descend();
  bool firstOrNoItem(char c);
  bool readPlainReal(double& value) noexcept;
  bool readPlainInteger(std::int64_t& value) noexcept;
  void checkScalarEnd(const char* end) const;
  bool takeWord(std::string_view word);
  Scan scanNumber(std::string_view expected);
  double realOf(const Scan& scan) const;
  std::string_view takeText();
  std::string_view unescaped(std::string_view raw);
  [[nodiscard]] const JSONCodingOptions& options() const noexcept;

  const JSONCodingOptions* options_;
  const char* text_;
  const char* textEnd_;
  const std::uint32_t* at_ = nullptr;
  const std::uint32_t* last_ = nullptr;
  int depth_ = 0;
  bool first_ = false;  // a container was just opened
  std::string scratch_;
  CodingPathChain path_;
  std::unique_ptr<detail::JSONIndex> index_;
  std::shared_ptr<const detail::JSONDocument> document_;  // a copy, once there is a decoder
};

}  // namespace ombrix::platform
