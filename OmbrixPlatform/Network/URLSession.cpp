#include "OmbrixPlatform/Network/URLSession.hpp"

#include <utility>

#include "OmbrixPlatform/Services.hpp"

namespace ombrix::platform {

std::shared_ptr<URLSessionUploadTask> URLSession::uploadTask(
    URLRequest request, const std::filesystem::path& fromFile,
    URLSessionCompletionHandler completionHandler) {
  request.httpBodySource = HTTPBodySource::file(fromFile);
  return uploadTask(std::move(request), std::nullopt, std::move(completionHandler));
}

std::shared_ptr<URLSession> URLSession::make(const URLSessionConfiguration& configuration,
                                             std::shared_ptr<URLSessionDelegate> delegate,
                                             std::shared_ptr<DispatchQueue> delegateQueue) {
  return services().urlSessionFactory.shared()->make(configuration, std::move(delegate),
                                                     std::move(delegateQueue));
}

const std::shared_ptr<URLSession>& URLSession::shared() {
  // Leaked: transfers may still run while the process ends.
  static const auto& session = *new auto(makeSystemURLSessionFactory()->make(
      URLSessionConfiguration::defaultConfiguration(), nullptr, nullptr));
  return session;
}

}  // namespace ombrix::platform
