#include "OmbrixCore/Networking/Requests/RequestOptions.hpp"

#include <algorithm>

namespace ombrix {

void RequestOptions::apply(platform::URLRequest& request) const {
  if (content) request.headers.set("Content-Type", content->type);
  for (const auto& [name, value] : headers) {
    if (!platform::headerNamesEqual(name, "Authorization")) request.headers.set(name, value);
  }
  if (timeout) request.timeoutInterval = std::min(request.timeoutInterval, *timeout);
  if (totalTimeout) request.resourceTimeoutInterval = totalTimeout;
  if (cachePolicy) request.cachePolicy = *cachePolicy;
  if (!safeForLowData) request.allowsConstrainedNetworkAccess = false;
  if (const auto& source = content ? content->body : body) {
    request.httpBody.reset();
    request.httpBodySource = source;
  }
}

}  // namespace ombrix
