#pragma once

#include <string>

#include "OmbrixPlatform/Network/URLSessionDelegate.hpp"

namespace ombrix {

/// The delegate of the client's sessions: it passes on redirects and answers, and accepts any
/// certificate of the local test server, but of no other server.
class OmbrixServerAPIDelegate final : public platform::URLSessionDelegate {
 public:
  /// @param testHost The local test server's host; empty for none.
  explicit OmbrixServerAPIDelegate(std::string testHost);

  [[nodiscard]] bool judgesServers(const std::string& host) const override;
  void didReceiveChallenge(platform::URLSession& session,
                           const platform::URLAuthenticationChallenge& challenge,
                           ChallengeHandler completionHandler) override;
  void willPerformHTTPRedirection(platform::URLSession& session, platform::URLSessionTask& task,
                                  const std::shared_ptr<const platform::HTTPURLResponse>& response,
                                  platform::URLRequest newRequest,
                                  RedirectHandler completionHandler) override;
  void didReceiveResponse(platform::URLSession& session, platform::URLSessionDataTask& task,
                          const std::shared_ptr<const platform::HTTPURLResponse>& response,
                          ResponseHandler completionHandler) override;

 private:
  const std::string testHost_;
};

}  // namespace ombrix
