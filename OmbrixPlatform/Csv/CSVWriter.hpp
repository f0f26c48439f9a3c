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
/// A field is quoted, as RFC 4180 has it, only when it needs to be: when it holds the delimiter, a
/// quote or a line break, or is the only, empty field of a row. Rows are collected and handed to
/// the stream when `kBlockBytes` have come together, on `flush` and with the end of the writer; a
/// block always ends with a row.
///
/// After a failed write the rows that the stream took whole stay and are counted, and the others
/// are dropped. A file that took a part of a row is cut back to the row before. Where that cannot
/// be done, as in a pipe, the next row starts with `tornRowEnd` and a line end. Writing can go on
/// once there is room. One thread at a time.
class CSVWriter {
 public:
  static constexpr std::size_t kBlockBytes = 64 * 1024;

  struct Configuration {
    char delimiter = ',';
    std::string_view newline = "\n";
    /// What is put behind a part of a row that stays, so that no reader takes it for a row.
    std::string_view tornRowEnd = {};
  };

  /// A stream that is not open is opened here and closed with the writer.
  /// @throws CSVError for a delimiter that is a quote or a line break, and when the stream cannot
  ///         be opened
  explicit CSVWriter(std::shared_ptr<OutputStream> stream);
  CSVWriter(std::shared_ptr<OutputStream> stream, const Configuration& configuration);

  /// Flushes without telling of a failure; call `flush` to know.
  ~CSVWriter();
  CSVWriter(CSVWriter&&) noexcept = default;
  CSVWriter& operator=(CSVWriter&&) = delete;
  CSVWriter(const CSVWriter&) = delete;
  CSVWriter& operator=(const CSVWriter&) = delete;

  [[nodiscard]] const std::shared_ptr<OutputStream>& stream() const noexcept { return stream_; }
  [[nodiscard]] std::string_view newline() const noexcept { return newline_; }

  /// Adds a whole row. @throws CSVError when a block cannot be written
  void write(std::span<const std::string_view> row);

  /// Adds a field to the row that is being built.
  void addField(std::string_view text);

  /// Adds a number as a field; a number without a text adds no field at all.
  void addField(double number, TruncatingNumberFormat format);

  /// Ends the row that is being built; the next field begins another. @throws CSVError as above
  void endRow();

  /// Adds a line end by itself. @throws CSVError as above
  void writeNewline();

  /// Hands all complete rows to the stream. @throws CSVError when it does not take them
  void flush();

  /// How many lines the stream has taken whole since the writer was made. After a failure it tells
  /// which row to go on with.
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
  std::size_t rowBegin_ = 0;  ///< Where the row that is being built begins in the buffer.
  std::size_t fieldCount_ = 0;
};

}  // namespace ombrix::platform
