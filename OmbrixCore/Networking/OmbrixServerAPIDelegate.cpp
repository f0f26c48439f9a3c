#include "OmbrixCore/Networking/OmbrixServerAPIDelegate.hpp"

#include <utility>

namespace ombrix {

OmbrixServerAPIDelegate::OmbrixServerAPIDelegate(std::string testHost)
    : testHost_(std::move(testHost)) {}

bool OmbrixServerAPIDelegate::judgesServers(const std::string& host) const {
  return platform::headerNamesEqual(host, testHost_);
}

void OmbrixServerAPIDelegate::didReceiveChallenge(
    platform::URLSession&, const platform::URLAuthenticationChallenge& challenge,
    ChallengeHandler completionHandler) {
  const auto& space = challenge.protectionSpace;
  if (!platform::headerNamesEqual(space.host, testHost_) || !space.serverTrust) {
    return completionHandler(AuthChallengeDisposition::performDefaultHandling, std::nullopt);
  }
  completionHandler(AuthChallengeDisposition::useCredential,
                    platform::URLCredential{*space.serverTrust});
}

void OmbrixServerAPIDelegate::willPerformHTTPRedirection(
    platform::URLSession&, platform::URLSessionTask&,
    const std::shared_ptr<const platform::HTTPURLResponse>&, platform::URLRequest newRequest,
    RedirectHandler completionHandler) {
  completionHandler(std::move(newRequest));
}

void OmbrixServerAPIDelegate::didReceiveResponse(
    platform::URLSession&, platform::URLSessionDataTask&,
    const std::shared_ptr<const platform::HTTPURLResponse>&, ResponseHandler completionHandler) {
  completionHandler(ResponseDisposition::allow);
}

}  // namespace ombrix
