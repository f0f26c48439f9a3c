#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixPlatform/Csv/CSVError.hpp"

namespace ombrix::platform {

class InputStream;

namespace detail {
struct NumberRowText;
using NumberRowScanner = const char* (*)(const NumberRowText&, std::span<double>) noexcept;
}  // namespace detail

/// Reads rows of delimited text one by one.
///
/// "\n", "\r\n" and "\r" end a row; the last row needs no line end. Empty lines yield no row.
/// Quotes follow RFC 4180: a field that begins with a double quote runs to the next single one, a
/// doubled quote inside stands for one, and delimiters and line breaks inside belong to the field.
/// Beyond the RFC: text between a closing quote and the next delimiter is appended to the field
/// unchanged, and a quote inside an unquoted field is an ordinary character. So is an opening quote
/// whose field is not closed within `kMaximumFieldBytes` or before the end of the input: a stray
/// quote costs only its own row, and the next line is read as usual. A UTF-8 byte-order mark at the
/// very beginning is skipped; all other bytes, including NUL and invalid UTF-8, pass through
/// unchanged.
///
/// Fields after the first `keptFields` are skipped, however long they are. A row is dropped and
/// counted when one of its kept fields is longer than `kMaximumFieldBytes`; reading continues at
/// the next line end. Text in memory is read in place, streams in blocks of `kBlockBytes`; memory
/// is bounded by the kept fields of one row. One thread at a time.
class CSVReader {
 public:
  /// The fields of one row; valid until the next row is requested.
  using Row = std::span<const std::string_view>;

  static constexpr std::size_t kBlockBytes = 256 * 1024;
  static constexpr std::size_t kMaximumFieldBytes = 64 * 1024;
  static constexpr std::string_view kDefaultWhitespaces = " \t\v\f";

  struct Configuration {
    char delimiter = ',';
    /// Whether the first row names the columns: it is then kept as `headerRow` and not returned.
    bool hasHeaderRow = false;
    /// Whether `whitespaces` at both ends of a field (outside its quotes) are removed.
    bool trimFields = false;
    std::string_view whitespaces = kDefaultWhitespaces;
    /// The number of fields kept per row, at least 1.
    std::size_t keptFields = 1024;
    /// If false, `nextNumbers` uses portable code only, even on processors with more instructions.
    bool usesWideInstructions = true;
  };

  /// Reads text that outlives the reader.
  /// @throws CSVError for a delimiter that is a quote or a line break
  explicit CSVReader(std::string_view text);
  CSVReader(std::string_view text, const Configuration& configuration);

  /// Reads a stream that outlives the reader, starting with its first block. A stream that is not
  /// open is opened here and closed with the reader. The reader reads ahead: afterwards a stream
  /// that was open is at its end, or where the reader stopped reading blocks.
  /// @throws CSVError also when the stream cannot be opened or its first block cannot be read
  explicit CSVReader(InputStream& stream);
  CSVReader(InputStream& stream, const Configuration& configuration);

  ~CSVReader();
  CSVReader(const CSVReader&) = delete;
  CSVReader& operator=(const CSVReader&) = delete;

  /// The names of the columns; empty without a header row.
  [[nodiscard]] const std::vector<std::string>& headerRow() const noexcept { return headerRow_; }

  /// The next row; empty when no row is left or the stream fails (see `error`).
  std::optional<Row> next();

  /// The number of rows dropped so far because a field was too long.
  [[nodiscard]] std::uint64_t droppedRows() const noexcept { return droppedRows_; }

  /// Reads the next row as numbers when it is plain: it has exactly as many fields as `numbers`,
  /// each of digits with an optional leading "-" and an optional "." among them.
  ///
  /// @return true if so; otherwise nothing was consumed and `next` returns the row. May also leave
  ///   to `next`: an unusual number ("1e3"), the last row of the input, a row after empty lines.
  ///   Numbers equal those of `doubleFromText`, to the last bit.
  bool nextNumbers(std::span<double> numbers);

  /// The number of bytes in the rows so far, line ends and empty lines included.
  [[nodiscard]] std::uint64_t bytesRead() const noexcept;

  /// The number of bytes in total when the reader was created, if known.
  [[nodiscard]] std::optional<std::uint64_t> bytesTotal() const noexcept { return bytesTotal_; }

  /// Why the stream failed before its end. The complete rows up to there are returned; the
  /// truncated one is not.
  [[nodiscard]] const std::optional<CSVError>& error() const noexcept { return error_; }

 private:
  struct Unescaped {
    std::size_t field, begin, size;
  };

  /// How far a field or a row was scanned.
  enum class Scan {
    whole,
    unread,   ///< Its end has not been read yet.
    tooLong,  ///< A field exceeds the limit.
    behind,   ///< All kept fields were scanned, and the row continues.
  };

  void start(const Configuration& configuration);
  void openStream();
  void readInPlace(std::string_view text);
  bool fill();
  /// Whether `end_` is the end of the input: no byte is unread or lost with a broken stream.
  [[nodiscard]] bool isComplete() const noexcept { return atEnd_ && !error_; }
  void makeRoom(std::size_t tail);
  Scan scanRow(const char*& position);
  Scan scanQuotedField(const char*& position);
  Scan scanPlainField(const char*& position);
  std::optional<bool> findClosingQuote(const char*& position) const noexcept;
  bool skipFields();
  bool skipPlain(bool stopsAtDelimiter);
  void keepFields();
  void skipWhitespace(const char*& position) const noexcept;
  [[nodiscard]] std::string_view trimmed(std::string_view field) const noexcept;
  [[nodiscard]] bool endsField(char c) const noexcept {
    return c == delimiter_ || c == '\n' || c == '\r';
  }

  InputStream* stream_ = nullptr;
  bool closesStream_ = false;
  bool atEnd_ = true;

  // The unconsumed bytes are in [position_, end_); all of [readableBegin_, readableEnd_) may be
  // loaded, whatever it contains.
  const char* position_ = nullptr;
  const char* end_ = nullptr;
  const char* readableBegin_ = nullptr;
  const char* readableEnd_ = nullptr;
  std::unique_ptr<char[]> buffer_;
  std::size_t capacity_ = 0;
  std::uint64_t bytesBehindEnd_ = 0;
  std::optional<std::uint64_t> bytesTotal_;

  char delimiter_ = ',';
  std::size_t keptFields_ = 0;
  std::uint64_t droppedRows_ = 0;
  bool fieldsLieInBuffer_ = false;  ///< Whether `fill` must copy them out first.
  bool trimFields_ = false;
  std::string whitespaces_;
  detail::NumberRowScanner scanNumbers_ = nullptr;  ///< Null if no row can be plain.

  std::vector<std::string_view> fields_;
  // Fields that differ from their bytes are rebuilt here and assigned when the row is complete.
  std::string unescapedText_;
  std::vector<Unescaped> unescaped_;
  std::vector<std::string> headerRow_;
  std::optional<CSVError> error_;
};

}  // namespace ombrix::platform
