#include "Tools/DevServer/Service/ServerCore.hpp"

#include <exception>
#include <utility>

#include "OmbrixPlatform/Locks/Mutex.hpp"
#include "Tools/DevServer/Routes/Routes.hpp"

namespace ombrix::devserver {

ServerCore::ServerCore(DevServer::Options given)
    : options(std::move(given)),
      identity(options.usesTLS ? makeIdentity(options.certificate, options.clientAuthorityPEM)
                               : Identity{}),
      journal(options.mostRecordedRequests, options.mostRecordedBodyBytes),
      sessions(options.email, options.password) {
  sessions.setRotation(options.rotateTokenEvery);
  addAccountRoutes(*this);
  addAdminRoutes(*this);
  addDataRoutes(*this);
  addAnswerRoutes(*this);
  addCacheRoutes(*this);
  addFaultRoutes(*this);
}

Response ServerCore::answer(Request& request) {
  Response response = isInMaintenance && !request.path.starts_with("/admin/")
                          ? Response::message(503, "The service is down for maintenance.")
                          : answerByRoute(request);
  if (options.observer) options.observer(request, response.script.empty() ? response.status : 0);
  return response;
}

Response ServerCore::answerByRoute(Request& request) {
  Router::Match match = router.match(request);
  if (!match.route) {
    if (match.allowed.empty()) return Response::message(404, "There is nothing at this path.");
    Response refused = Response::message(405, "This path does not serve that method.");
    refused.headers.add("Allow", match.allowed);
    return refused;
  }
  request.rest = std::move(match.rest);
  const bool needsToken = match.route->access == Access::needsToken;
  if (needsToken && !sessions.isValid(request.headers.value("Authorization"))) {
    Response refused = Response::message(401, "Sign in first.");
    refused.headers.add("WWW-Authenticate", "Bearer");
    return refused;
  }
  try {
    Response response = match.route->handler(request);
    if (needsToken) {
      if (const auto token = sessions.rotate()) {
        response.headers.set("Authorization", "Bearer " + *token);
      }
    }
    return response;
  } catch (const std::exception& error) {
    return Response::message(500, error.what());
  }
}

std::optional<Script> ServerCore::takeConnectionScript() {
  const platform::LockGuard lock(scriptMutex_);
  if (scriptedConnections_ == 0) return std::nullopt;
  --scriptedConnections_;
  return script_;
}

void ServerCore::setConnectionScript(Script script, std::size_t count) {
  const platform::LockGuard lock(scriptMutex_);
  script_ = std::move(script);
  scriptedConnections_ = count;
}

}  // namespace ombrix::devserver
