#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "OmbrixCore/Networking/Requests/HTTPBodySink.hpp"
#include "OmbrixPlatform/Files/OutputStream.hpp"
#include "OmbrixPlatform/Network/HTTPHeaders.hpp"

namespace ombrix::detail {

/// Takes a body into a file: first beside it, in "NAME.part", which becomes the file when it is
/// whole. What a broken download leaves there is gone on with, as long as the server says that it
/// still has the same: its strong "ETag" or its date is kept in "NAME.part.tag".
class FileSink final : public HTTPBodySink {
 public:
  explicit FileSink(std::filesystem::path file);

  /// Asks for the rest of what lies there, and for a body that is not coded.
  void prepare(platform::HTTPHeaders& headers);

  std::expected<Flow, platform::URLError> take(const platform::HTTPURLResponse& response,
                                               platform::DataView piece) override;
  std::expected<void, platform::URLError> end(const platform::HTTPURLResponse& response) override;

  [[nodiscard]] bool beginAgain(const std::shared_ptr<HttpRequestOperation>& operation,
                                platform::HTTPHeaders& headers) override;

  /// The server has no bytes behind those that lie there (416): true when those were all, and the
  /// file is there now; else they are thrown away.
  [[nodiscard]] bool endWithWhatIsThere(const platform::HTTPURLResponse& response);

 private:
  std::expected<void, platform::URLError> open(const platform::HTTPURLResponse& response);
  std::expected<void, platform::URLError> moveIntoPlace();

  const std::filesystem::path file_, part_, tag_;
  std::uint64_t present_ = 0;  // bytes that are asked for no more
  std::unique_ptr<platform::OutputStream> stream_;
};

}  // namespace ombrix::detail
