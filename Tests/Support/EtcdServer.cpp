#include "OmbrixTesting/EtcdServer.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

namespace ombrix::testing {
namespace {

/// A port that nobody listened on a moment ago; etcd's gateway cannot find its own when told 0.
int freePort() {
  const int descriptor = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  ::bind(descriptor, reinterpret_cast<const sockaddr*>(&address), size);
  ::getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size);
  ::close(descriptor);
  return ntohs(address.sin_port);
}

}  // namespace

bool EtcdServer::isInstalled() { return std::system("command -v etcd >/dev/null 2>&1") == 0; }

EtcdServer::EtcdServer(std::filesystem::path folder)
    : folder_(std::move(folder)), port_(freePort()) {
  start();
}

platform::URL EtcdServer::url() const {
  return *platform::URL::parse("http://127.0.0.1:" + std::to_string(port_));
}

void EtcdServer::start() {
  const std::string peer = "http://127.0.0.1:0";
  process_.emplace(std::vector<std::string>{
      "/bin/sh", "-c",
      "exec etcd --data-dir \"$0\" --listen-client-urls \"$1\" --advertise-client-urls \"$1\" "
      "--listen-peer-urls " +
          peer + " --initial-advertise-peer-urls " + peer + " --initial-cluster default=" + peer +
          " 2>&1",
      folder_.string(), url().absoluteString()});
  while (const auto line = process_->readLine()) {
    if (line->contains("serving insecure client requests")) return;
  }
  throw std::runtime_error("etcd did not start");
}

}  // namespace ombrix::testing
