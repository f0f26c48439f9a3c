#include "OmbrixPlatform/Csv/CSVWriter.hpp"

#include <algorithm>
#include <cstring>
#include <utility>

namespace ombrix::platform {
namespace {

constexpr char kQuote = '"';

/// Space after a full block for most rows, so that the buffer seldom grows.
constexpr std::size_t kSlackBytes = 4096;

bool needsQuotes(std::string_view text, char delimiter) noexcept {
  return std::ranges::any_of(text, [delimiter](char c) {
    return c == delimiter || c == kQuote || c == '\n' || c == '\r';
  });
}

}  // namespace

CSVWriter::CSVWriter(std::shared_ptr<OutputStream> stream)
    : CSVWriter(std::move(stream), Configuration{}) {}

CSVWriter::CSVWriter(std::shared_ptr<OutputStream> stream, const Configuration& configuration)
    : stream_(std::move(stream)),
      delimiter_(configuration.delimiter),
      newline_(configuration.newline),
      tornRowEnd_(configuration.tornRowEnd),
      buffer_(std::make_unique_for_overwrite<char[]>(kBlockBytes + kSlackBytes)),
      capacity_(kBlockBytes + kSlackBytes) {
  if (delimiter_ == kQuote || delimiter_ == '\n' || delimiter_ == '\r') {
    throw CSVError(CSVError::Kind::badConfiguration,
                   "A CSV delimiter cannot be a quote or a line break.");
  }
  if (stream_->streamStatus() != StreamStatus::notOpen) return;
  const auto opened = stream_->open();
  if (!opened) throw CSVError(CSVError::Kind::cannotOpenStream, opened.error().what());
  closesStream_ = true;
}

CSVWriter::~CSVWriter() {
  if (stream_ == nullptr) return;
  try {
    flush();
  } catch (const CSVError&) {
    // As the header says: callers that need to know have called flush before.
  }
  if (closesStream_) stream_->close();
}

void CSVWriter::write(std::span<const std::string_view> row) {
  for (const auto field : row) addField(field);
  endRow();
}

void CSVWriter::addField(std::string_view text) {
  if (!needsQuotes(text, delimiter_)) {
    beginField(text.size());
    append(text);
    return;
  }
  beginField(2 * text.size() + 2);
  buffer_[size_++] = kQuote;
  for (const char c : text) {
    if (c == kQuote) buffer_[size_++] = kQuote;
    buffer_[size_++] = c;
  }
  buffer_[size_++] = kQuote;
}

void CSVWriter::addField(double number, TruncatingNumberFormat format) {
  const auto before = size_;
  beginField(TruncatingNumberFormat::kRequiredBytes);
  const char* const end = format.write(number, buffer_.get() + size_);
  if (end == nullptr) {
    size_ = before;
    --fieldCount_;
    return;
  }
  size_ = static_cast<std::size_t>(end - buffer_.get());
}

void CSVWriter::endRow() {
  // An empty line would not be read as a row.
  if (fieldCount_ == 1 && size_ == rowBegin_) append("\"\"");
  endLine();
}

void CSVWriter::writeNewline() { endLine(); }

void CSVWriter::endLine() {
  append(newline_);
  rowBegin_ = size_;
  fieldCount_ = 0;
  ++linesInBuffer_;
  if (size_ >= kBlockBytes) flush();
}

void CSVWriter::flush() {
  const std::size_t count = std::exchange(rowBegin_, 0);
  if (count == 0) return;
  const std::string_view rows(buffer_.get(), count);
  auto written = isTorn_ ? stream_->write(bytesOf(tornRowEnd_ + newline_)) : FileResult<void>{};
  if (!written) {
    stream_->resume(stream_->bytesOfFailedWrite());
  } else if (written = stream_->write(bytesOf(rows)); written) {
    isTorn_ = false;
    linesWritten_ += linesInBuffer_;
  } else {
    keepWholeRows(rows.substr(0, stream_->bytesOfFailedWrite()));
  }
  linesInBuffer_ = 0;
  size_ -= count;
  std::memmove(buffer_.get(), buffer_.get() + count, size_);
  if (!written) throw CSVError(CSVError::Kind::cannotWriteStream, written.error().what());
}

/// Counts the rows that a failed write took completely and removes the partial row after them.
void CSVWriter::keepWholeRows(std::string_view taken) {
  std::size_t end = 0;
  bool isQuoted = false;
  for (std::size_t i = 0; i < taken.size();) {
    isQuoted ^= taken[i] == kQuote;
    if (isQuoted || !taken.substr(i).starts_with(newline_)) {
      ++i;
      continue;
    }
    end = i += newline_.size();
    ++linesWritten_;
  }
  isTorn_ = !stream_->resume(taken.size() - end);
}

/// Reserves space for a field and what may follow it, and writes the delimiter.
void CSVWriter::beginField(std::size_t room) {
  const std::size_t needed = size_ + room + 1;
  if (needed > capacity_) growBuffer(needed);
  if (fieldCount_++ != 0) buffer_[size_++] = delimiter_;
}

void CSVWriter::append(std::string_view bytes) {
  if (size_ + bytes.size() > capacity_) growBuffer(size_ + bytes.size());
  std::ranges::copy(bytes, buffer_.get() + size_);
  size_ += bytes.size();
}

void CSVWriter::growBuffer(std::size_t size) {
  capacity_ = std::max(size, 2 * capacity_);
  auto grown = std::make_unique_for_overwrite<char[]>(capacity_);
  std::memcpy(grown.get(), buffer_.get(), size_);
  buffer_ = std::move(grown);
}

}  // namespace ombrix::platform
