#include <string>

#include "Tools/DevServer/Routes/Routes.hpp"
#include "Tools/DevServer/Service/Faults.hpp"
#include "Tools/DevServer/Service/ServerCore.hpp"

namespace ombrix::devserver {
namespace {

Response unknownFault(const std::vector<std::string_view>& names) {
  std::string text = "There is no such fault, but ";
  for (const auto name : names) text.append(name == names.front() ? "" : ", ").append(name);
  return Response::message(404, text);
}

Response misbehave(const Request& request) {
  auto script = answerFault(request.rest, request.query);
  return script ? Response::following(std::move(*script)) : unknownFault(answerFaultNames());
}

Response misbehaveInHandshake(ServerCore& core, const Request& request) {
  auto script = connectionFault(request.rest, request.query);
  if (!script) return unknownFault(connectionFaultNames());
  core.setConnectionScript(std::move(*script),
                           static_cast<std::size_t>(request.query.number("count").value_or(1)));
  Response response;
  response.status = 204;
  return response;
}

}  // namespace

void addFaultRoutes(ServerCore& core) {
  core.router.add("*", "/fault/*", Access::open, misbehave);
  core.router.add("PUT", "/admin/connections/*", Access::open,
                  [&core](const Request& request) { return misbehaveInHandshake(core, request); });
}

}  // namespace ombrix::devserver
