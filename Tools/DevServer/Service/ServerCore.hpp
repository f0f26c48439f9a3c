#pragma once

#include <asio/io_context.hpp>
#include <atomic>
#include <cstddef>
#include <memory>
#include <optional>
#include <unordered_set>

#include "OmbrixPlatform/Locks/Mutex.hpp"
#include "Tools/DevServer/DevServer.hpp"
#include "Tools/DevServer/Service/Gates.hpp"
#include "Tools/DevServer/Service/Sessions.hpp"

namespace ombrix::devserver {

class Connection;

/// The state that the connections and routes of one server share.
class ServerCore {
 public:
  explicit ServerCore(DevServer::Options options);

  /// Answers a request: checks maintenance, then routes, then tokens. Server's thread.
  Response answer(Request& request);

  /// The script of the next connection, if one is due.
  std::optional<Script> takeConnectionScript();
  void setConnectionScript(Script script, std::size_t count);

  asio::io_context context{1};
  const DevServer::Options options;
  Identity identity;
  Journal journal;
  Gates gates;
  Router router;
  Sessions sessions;
  std::atomic<bool> isInMaintenance{false};
  std::unordered_set<std::shared_ptr<Connection>> connections;  // server's thread

 private:
  Response answerByRoute(Request& request);

  platform::Mutex scriptMutex_;
  Script script_ OMBRIX_GUARDED_BY(scriptMutex_);
  std::size_t scriptedConnections_ OMBRIX_GUARDED_BY(scriptMutex_) = 0;
};

}  // namespace ombrix::devserver
