#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "OmbrixPlatform/Csv/CSVError.hpp"
#include "OmbrixPlatform/Csv/NumberText.hpp"
#include "OmbrixPlatform/Files/OutputStream.hpp"

namespace ombrix::platform {

/// Writes rows of delimited text to a stream.
///
/// As in RFC 4180, a field is quoted only when it needs to be: when it contains the delimiter, a
/// quote or a line break, or is the only field of its row and empty. Rows are collected and written
/// to the stream in blocks of `kBlockBytes`, on `flush` and when the writer is destroyed; a block
/// always ends with a complete row.
///
/// After a failed write, the rows that the stream took completely stay and are counted; the others
/// are dropped. A file that took part of a row is truncated to the row before. Where that is not
/// possible, as in a pipe, the next row starts with `tornRowEnd` and a line end. Writing can
/// continue once there is space. One thread at a time.
class CSVWriter {
 public:
  static constexpr std::size_t kBlockBytes = 64 * 1024;

  struct Configuration {
    char delimiter = ',';
    std::string_view newline = "\n";
    /// Written after a partial row that cannot be removed, so that no reader takes it for a row.
    std::string_view tornRowEnd = {};
  };

  /// Opens a stream that is not open, and closes it with the writer.
  /// @throws CSVError for a delimiter that is a quote or a line break, and when the stream cannot
  ///   be opened
  explicit CSVWriter(std::shared_ptr<OutputStream> stream);
  CSVWriter(std::shared_ptr<OutputStream> stream, const Configuration& configuration);

  /// Flushes without reporting a failure; call `flush` to get it.
  ~CSVWriter();
  CSVWriter(CSVWriter&&) noexcept = default;
  CSVWriter& operator=(CSVWriter&&) = delete;
  CSVWriter(const CSVWriter&) = delete;
  CSVWriter& operator=(const CSVWriter&) = delete;

  [[nodiscard]] const std::shared_ptr<OutputStream>& stream() const noexcept { return stream_; }
  [[nodiscard]] std::string_view newline() const noexcept { return newline_; }

  /// Adds a whole row. @throws CSVError when a block cannot be written
  void write(std::span<const std::string_view> row);

  /// Adds a field to the current row.
  void addField(std::string_view text);

  /// Adds a number as a field; adds no field at all for a number that is not finite.
  void addField(double number, TruncatingNumberFormat format);

  /// Ends the current row; the next field begins another. @throws CSVError as above
  void endRow();

  /// Adds a line end on its own. @throws CSVError as above
  void writeNewline();

  /// Writes all complete rows to the stream. @throws CSVError when the stream does not take them
  void flush();

  /// The number of lines that the stream has taken completely since the writer was created. After a
  /// failure it tells with which row to continue.
  [[nodiscard]] std::uint64_t linesWritten() const noexcept { return linesWritten_; }

 private:
  void keepWholeRows(std::string_view taken);
  void beginField(std::size_t room);
  void endLine();
  void append(std::string_view bytes);
  void growBuffer(std::size_t size);

  std::shared_ptr<OutputStream> stream_;
  char delimiter_;
  std::string newline_;
  std::string tornRowEnd_;
  bool closesStream_ = false;
  bool isTorn_ = false;  ///< Whether the stream may end within a row.
  std::uint64_t linesWritten_ = 0;
  std::uint64_t linesInBuffer_ = 0;

  std::unique_ptr<char[]> buffer_;
  std::size_t capacity_;
  std::size_t size_ = 0;
  std::size_t rowBegin_ = 0;  ///< Where the current row begins in the buffer.
  std::size_t fieldCount_ = 0;
};

}  // namespace ombrix::platform
