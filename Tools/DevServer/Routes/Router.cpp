#include "Tools/DevServer/Routes/Router.hpp"

#include <algorithm>
#include <utility>

#include "OmbrixPlatform/Locks/Mutex.hpp"

namespace ombrix::devserver {

void Router::add(std::string method, std::string_view path, Access access, Handler handler) {
  auto route = std::make_shared<const Route>(Route{std::move(method), access, std::move(handler)});
  const platform::LockGuard lock(mutex_);
  if (!path.ends_with("/*")) {
    exact_[std::string(path)].push_back(std::move(route));
    return;
  }
  const std::string_view prefix = path.substr(0, path.size() - 1);
  auto place = std::ranges::find(prefixes_, prefix, &std::pair<std::string, Routes>::first);
  if (place == prefixes_.end()) {
    prefixes_.emplace_back(prefix, Routes{});
    std::ranges::stable_sort(prefixes_, std::greater{},
                             [](const auto& entry) { return entry.first.size(); });
    place = std::ranges::find(prefixes_, prefix, &std::pair<std::string, Routes>::first);
  }
  place->second.push_back(std::move(route));
}

Router::Match Router::match(const Request& request) const {
  Match match;
  const platform::LockGuard lock(mutex_);
  const auto found = exact_.find(request.path);
  if (found != exact_.end()) {
    match.route = choose(found->second, request.method, match.allowed);
    if (match.route) return match;
  }
  for (const auto& [prefix, routes] : prefixes_) {
    if (!request.path.starts_with(prefix)) continue;
    match.route = choose(routes, request.method, match.allowed);
    if (!match.route) continue;
    match.rest = request.path.substr(prefix.size());
    return match;
  }
  return match;
}

std::shared_ptr<const Router::Route> Router::choose(const Routes& routes, std::string_view method,
                                                    std::string& allowed) {
  const std::shared_ptr<const Route>* serving = nullptr;
  for (const auto& route : routes) {
    if (route->method == method || route->method == "*") {
      serving = &route;
    } else if (method == "HEAD" && route->method == "GET" && serving == nullptr) {
      serving = &route;
    }
  }
  if (serving != nullptr) return *serving;
  for (const auto& route : routes) {
    allowed.append(allowed.empty() ? "" : ", ").append(route->method);
  }
  return nullptr;
}

}  // namespace ombrix::devserver
