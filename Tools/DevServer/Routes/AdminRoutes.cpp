#include <string>

#include "OmbrixPlatform/Coding/JSON.hpp"
#include "Tools/DevServer/Routes/Routes.hpp"
#include "Tools/DevServer/Service/ServerCore.hpp"

namespace ombrix::devserver {
namespace {

using platform::JSON;

Response done() {
  Response response;
  response.status = 204;
  return response;
}

Response setMaintenance(ServerCore& core, const Request& request) {
  if (request.body != "on" && request.body != "off") {
    return Response::message(400, "The body is \"on\" or \"off\".");
  }
  core.isInMaintenance = request.body == "on";
  return done();
}

Response counters(ServerCore& core) {
  const Counters counters = core.journal.counters();
  return Response::json(JSON::Dictionary{{"requests", counters.requests},
                                         {"connections", counters.connections},
                                         {"openConnections", counters.openConnections},
                                         {"inFlight", counters.inFlight},
                                         {"mostInFlight", counters.mostInFlight},
                                         {"held", counters.held}});
}

}  // namespace

void addAdminRoutes(ServerCore& core) {
  core.router.add("PUT", "/admin/maintenance", Access::open,
                  [&core](const Request& request) { return setMaintenance(core, request); });
  core.router.add("PUT", "/admin/rotation", Access::open, [&core](const Request& request) {
    core.sessions.setRotation(request.query.number("every").value_or(0));
    return done();
  });
  core.router.add("DELETE", "/admin/tokens", Access::open, [&core](const Request&) {
    core.sessions.revokeAll();
    return done();
  });
  core.router.add("PUT", "/admin/gates/*", Access::open, [&core](const Request& request) {
    core.gates.open(request.rest);
    return done();
  });
  core.router.add("DELETE", "/admin/gates/*", Access::open, [&core](const Request& request) {
    core.gates.shut(request.rest);
    return done();
  });
  core.router.add("GET", "/admin/counters", Access::open,
                  [&core](const Request&) { return counters(core); });
}

}  // namespace ombrix::devserver
