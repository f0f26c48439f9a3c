#include "OmbrixCore/Networking/Requests/Detail/FileSink.hpp"

#include <charconv>
#include <fstream>
#include <functional>
#include <string_view>
#include <system_error>
#include <utility>

namespace ombrix::detail {
namespace {

using platform::HTTPURLResponse;
using platform::URLError;

constexpr int kPartialContent = 206;

std::unexpected<URLError> failure(const std::string& sentence) {
  return std::unexpected(URLError(URLError::Code::unknown, sentence));
}

bool bringsTheFile(const HTTPURLResponse& response) {
  const int status = response.statusCode();
  return status == 200 || status == 203 || status == kPartialContent;
}

/// The field by which the server recognises its version of the file; empty if it sends none.
std::string validatorOf(const HTTPURLResponse& response) {
  const auto tag = response.valueForHTTPHeaderField("ETag");
  if (tag && !tag->starts_with("W/")) return std::string(*tag);
  return std::string(response.valueForHTTPHeaderField("Last-Modified").value_or(""));
}

std::filesystem::path beside(const std::filesystem::path& file, const char* ending) {
  auto path = file;
  return path += ending;
}

/// "bytes FIRST-LAST/WHOLE" (RFC 9110 section 14.4); the whole may be unknown ("*").
struct ContentRange {
  std::uint64_t first = 0, last = 0;
  std::optional<std::uint64_t> whole;

  static std::optional<ContentRange> of(std::string_view text) {
    ContentRange range;
    const auto takes = [&](std::string_view expected) {
      const bool isThere = text.starts_with(expected);
      if (isThere) text.remove_prefix(expected.size());
      return isThere;
    };
    const auto takesNumber = [&](std::uint64_t& number) {
      const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
      if (error == std::errc()) text.remove_prefix(static_cast<std::size_t>(end - text.data()));
      return error == std::errc();
    };
    if (!takes("bytes ") || !takesNumber(range.first) || !takes("-") || !takesNumber(range.last) ||
        !takes("/") || range.last < range.first) {
      return std::nullopt;
    }
    if (text == "*") return range;
    if (!takesNumber(range.whole.emplace()) || !text.empty()) return std::nullopt;
    return range;
  }
};

}  // namespace

FileSink::FileSink(std::filesystem::path file, const std::string& url)
    : file_(std::move(file)),
      part_(beside(file_, ".part")),
      tag_(beside(part_, ".tag")),
      urlDigest_(std::to_string(std::hash<std::string>{}(url))) {}

void FileSink::prepare(platform::HTTPHeaders& headers) {
  headers.set("Accept-Encoding", "identity");
  std::ifstream stored(tag_, std::ios::binary);
  std::string validator, digest;
  std::getline(stored, validator);
  std::getline(stored, digest);
  std::error_code error;
  const auto size = std::filesystem::file_size(part_, error);
  if (error || size == 0 || validator.empty() || digest != urlDigest_ ||
      !platform::HTTPHeaders::isValue(validator)) {
    return;
  }
  present_ = size;
  headers.set("Range", "bytes=" + std::to_string(size) + "-");
  headers.set("If-Range", validator);
}

std::expected<void, URLError> FileSink::open(const HTTPURLResponse& response) {
  const bool isRest = response.statusCode() == kPartialContent;
  if (isRest) {
    const auto range =
        ContentRange::of(response.valueForHTTPHeaderField("Content-Range").value_or(""));
    if (present_ == 0 || !range || range->first != present_) {
      return failure("the server sent another part than was asked for");
    }
    partEnd_ = range->last + 1;
    wholeBytes_ = range->whole;
  }
  auto claim = platform::FileClaim::take(part_.string());
  if (!claim)
    return failure("another download writes the file: " + std::string(claim.error().what()));
  std::error_code error;
  if (isRest && std::filesystem::file_size(part_, error) != present_) {
    if (std::filesystem::is_empty(part_, error)) std::filesystem::remove(part_, error);  // ours
    return failure("another download has written the file meanwhile");
  }
  using enum platform::OutputFileMode;
  auto stream = platform::OutputStream::withPath(part_.string(), isRest ? append : replace);
  if (const auto opened = stream->open(); !opened) return failure(opened.error().what());
  claim_ = *std::move(claim);
  stream_ = std::move(stream);
  if (isRest) return {};
  const auto validator = validatorOf(response);
  std::filesystem::remove(tag_, error);
  if (!validator.empty()) std::ofstream(tag_, std::ios::binary) << validator << '\n' << urlDigest_;
  return {};
}

std::expected<HTTPBodySink::Flow, URLError> FileSink::take(const HTTPURLResponse& response,
                                                           platform::DataView piece) {
  if (!bringsTheFile(response)) return Flow::goOn;
  if (!stream_) {
    if (const auto opened = open(response); !opened) return std::unexpected(opened.error());
  }
  if (const auto written = stream_->write(piece); !written) {
    return failure(written.error().what());
  }
  taken_ += piece.size();
  return Flow::goOn;
}

std::expected<void, URLError> FileSink::end(const HTTPURLResponse& response) {
  if (!bringsTheFile(response)) return {};
  if (!stream_) {
    if (const auto opened = open(response); !opened) return opened;
  }
  stream_->close();
  if (const auto& late = stream_->streamError()) return failure(late->what());
  if (auto whole = isWhole(); !whole) return whole;
  auto moved = moveIntoPlace();
  breakOff();
  return moved;
}

/// Whether all of the file has come: a server may send less of a rest than was asked for.
std::expected<void, URLError> FileSink::isWhole() {
  if (!partEnd_) return {};
  if (present_ + taken_ > *partEnd_) {
    removeParts();
    return failure("the server sent more of the file than it said");
  }
  if (present_ + taken_ == *partEnd_ && partEnd_ == wholeBytes_) return {};
  return std::unexpected(URLError(URLError::Code::networkConnectionLost,
                                  "the server sent less than the rest of the file"));
}

void FileSink::breakOff() {
  if (const auto stream = std::exchange(stream_, nullptr)) stream->close();
  claim_.reset();
}

bool FileSink::beginAgain(const std::shared_ptr<HttpRequestOperation>& /*operation*/,
                          platform::HTTPHeaders& headers) {
  breakOff();
  taken_ = 0;
  partEnd_.reset();
  wholeBytes_.reset();
  if (std::exchange(present_, 0) > 0) {
    headers.remove("Range");
    headers.remove("If-Range");
  }
  prepare(headers);
  return true;
}

std::expected<void, URLError> FileSink::moveIntoPlace() {
  std::error_code error;
  std::filesystem::rename(part_, file_, error);
  if (error) return failure("rename " + part_.string() + ": " + error.message());
  std::filesystem::remove(tag_, error);
  return {};
}

void FileSink::removeParts() const {
  std::error_code ignored;
  std::filesystem::remove(tag_, ignored);
  std::filesystem::remove(part_, ignored);
}

bool FileSink::endWithWhatIsThere(const HTTPURLResponse& response) {
  if (present_ == 0) return false;
  const auto claim = platform::FileClaim::take(part_.string());
  if (!claim) return false;  // another download is at it
  const auto range = response.valueForHTTPHeaderField("Content-Range");
  std::error_code error;
  if (range == "bytes */" + std::to_string(present_) &&
      std::filesystem::file_size(part_, error) == present_) {
    return moveIntoPlace().has_value();
  }
  removeParts();
  return false;
}

}  // namespace ombrix::detail
