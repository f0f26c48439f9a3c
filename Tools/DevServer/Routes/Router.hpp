#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "OmbrixPlatform/Locks/Mutex.hpp"
#include "Tools/DevServer/HTTP/HTTPMessage.hpp"

namespace ombrix::devserver {

/// Answers a request; runs on the server's thread, so it must not block.
using Handler = std::function<Response(const Request&)>;

/// Whether a route requires a token.
enum class Access { open, needsToken };

/// Finds the handler of a request. Any thread.
class Router {
 public:
  struct Route {
    std::string method;  // "*" for all
    Access access = Access::open;
    Handler handler;
  };
  struct Match {
    std::shared_ptr<const Route> route;  // null if there is none
    std::string rest;                    // the text that "*" matched
    std::string allowed;                 // the path's methods if this one has no route
  };

  /// Adds a route; of equal ones the last one wins.
  ///
  /// @param method As in the request line; "*" for all. GET also serves HEAD.
  /// @param path A path, or a prefix of paths when it ends with "/*".
  void add(std::string method, std::string_view path, Access access, Handler handler);

  /// The route with the longest matching path.
  [[nodiscard]] Match match(const Request& request) const;

 private:
  using Routes = std::vector<std::shared_ptr<const Route>>;

  static std::shared_ptr<const Route> choose(const Routes& routes, std::string_view method,
                                             std::string& allowed);

  mutable platform::Mutex mutex_;
  std::unordered_map<std::string, Routes> exact_ OMBRIX_GUARDED_BY(mutex_);
  std::vector<std::pair<std::string, Routes>> prefixes_ OMBRIX_GUARDED_BY(mutex_);
};

}  // namespace ombrix::devserver
