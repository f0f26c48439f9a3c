#include "OmbrixCore/Networking/Requests/Detail/FileSink.hpp"

#include <fstream>
#include <iterator>
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

/// By what the server tells whether it still has the same; empty where it does not say.
std::string validatorOf(const HTTPURLResponse& response) {
  const auto tag = response.valueForHTTPHeaderField("ETag");
  if (tag && !tag->starts_with("W/")) return std::string(*tag);
  return std::string(response.valueForHTTPHeaderField("Last-Modified").value_or(""));
}

std::filesystem::path beside(const std::filesystem::path& file, const char* ending) {
  auto path = file;
  return path += ending;
}

}  // namespace

FileSink::FileSink(std::filesystem::path file)
    : file_(std::move(file)), part_(beside(file_, ".part")), tag_(beside(part_, ".tag")) {}

void FileSink::prepare(platform::HTTPHeaders& headers) {
  headers.set("Accept-Encoding", "identity");
  std::ifstream stored(tag_, std::ios::binary);
  const std::string validator{std::istreambuf_iterator<char>(stored), {}};
  std::error_code error;
  const auto size = std::filesystem::file_size(part_, error);
  if (error || size == 0 || validator.empty() || !platform::HTTPHeaders::isValue(validator)) return;
  present_ = size;
  headers.set("Range", "bytes=" + std::to_string(size) + "-");
  headers.set("If-Range", validator);
}

std::expected<void, URLError> FileSink::open(const HTTPURLResponse& response) {
  const bool isRest = response.statusCode() == kPartialContent;
  const std::string wanted = "bytes " + std::to_string(present_) + "-";
  const auto range = response.valueForHTTPHeaderField("Content-Range").value_or("");
  if (isRest && !(present_ > 0 && range.starts_with(wanted))) {
    return failure("the server sent another part than was asked for");
  }
  using enum platform::OutputFileMode;
  stream_ = platform::OutputStream::withPath(part_.string(), isRest ? append : replace);
  if (const auto opened = stream_->open(); !opened) return failure(opened.error().what());
  if (isRest) return {};
  const auto validator = validatorOf(response);
  std::error_code ignored;
  std::filesystem::remove(tag_, ignored);
  if (!validator.empty()) std::ofstream(tag_, std::ios::binary) << validator;
  return {};
}

std::expected<HTTPBodySink::Flow, URLError> FileSink::take(const HTTPURLResponse& response,
                                                           platform::DataView piece) {
  if (!stream_) {
    if (const auto opened = open(response); !opened) return std::unexpected(opened.error());
  }
  if (const auto written = stream_->write(piece); !written) {
    return failure(written.error().what());
  }
  return Flow::goOn;
}

std::expected<void, URLError> FileSink::end(const HTTPURLResponse& response) {
  if (!stream_) {
    if (const auto opened = open(response); !opened) return opened;
  }
  stream_->close();
  if (const auto& late = stream_->streamError()) return failure(late->what());
  return moveIntoPlace();
}

bool FileSink::beginAgain(const std::shared_ptr<HttpRequestOperation>& /*operation*/,
                          platform::HTTPHeaders& headers) {
  if (const auto stream = std::exchange(stream_, nullptr)) stream->close();
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

bool FileSink::endWithWhatIsThere(const HTTPURLResponse& response) {
  const auto range = response.valueForHTTPHeaderField("Content-Range");
  if (present_ > 0 && range == "bytes */" + std::to_string(present_)) {
    return moveIntoPlace().has_value();
  }
  std::error_code ignored;
  std::filesystem::remove(tag_, ignored);
  std::filesystem::remove(part_, ignored);
  return false;
}

}  // namespace ombrix::detail
