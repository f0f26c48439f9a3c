#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "OmbrixCore/Networking/Requests/HTTPBodySink.hpp"
#include "OmbrixPlatform/Files/FileClaim.hpp"
#include "OmbrixPlatform/Files/OutputStream.hpp"
#include "OmbrixPlatform/Network/HTTPHeaders.hpp"

namespace ombrix::detail {

/// Takes a body into a file: first beside it, in "NAME.part", which becomes the file when it is
/// whole. What a broken download leaves there is gone on with, as long as the server says that it
/// still has the same: its strong "ETag" or its date is kept in "NAME.part.tag", with a digest of
/// the URL. One download at a time; another one of the same file fails.
///
/// Only answers that bring the file (200, 203, 206) touch anything; for others that count as a
/// success, such as 304, all stays as it is.
class FileSink final : public HTTPBodySink {
 public:
  /// @param url Whose body it is.
  FileSink(std::filesystem::path file, const std::string& url);

  /// Asks for the part that is missing, and for a body that is not coded.
  void prepare(platform::HTTPHeaders& headers);

  std::expected<Flow, platform::URLError> take(const platform::HTTPURLResponse& response,
                                               platform::DataView piece) override;
  std::expected<void, platform::URLError> end(const platform::HTTPURLResponse& response) override;
  void breakOff() override;

  [[nodiscard]] bool beginAgain(const std::shared_ptr<HttpRequestOperation>& operation,
                                platform::HTTPHeaders& headers) override;

  /// The server has no bytes after the ones that were stored (416): true when those were all, and
  /// the file is complete now; otherwise they are discarded.
  [[nodiscard]] bool endWithWhatIsThere(const platform::HTTPURLResponse& response);

 private:
  std::expected<void, platform::URLError> open(const platform::HTTPURLResponse& response);
  [[nodiscard]] std::expected<void, platform::URLError> isWhole();
  std::expected<void, platform::URLError> moveIntoPlace();
  void removeParts() const;

  const std::filesystem::path file_, part_, tag_;
  const std::string urlDigest_;
  std::uint64_t present_ = 0;  // bytes that are asked for no more
  std::uint64_t taken_ = 0;    // of this answer
  // Of an answer with a part: where it ends, and the whole, if that is stated.
  std::optional<std::uint64_t> partEnd_, wholeBytes_;
  std::optional<platform::FileClaim> claim_;
  std::unique_ptr<platform::OutputStream> stream_;
};

}  // namespace ombrix::detail
