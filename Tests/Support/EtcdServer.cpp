#include "OmbrixTesting/EtcdServer.hpp"

#include <cstdlib>
#include <stdexcept>

#include "OmbrixTesting/UnusedPort.hpp"

namespace ombrix::testing {

bool EtcdServer::isInstalled() { return std::system("command -v etcd >/dev/null 2>&1") == 0; }

EtcdServer::EtcdServer(std::filesystem::path folder)
    : folder_(std::move(folder)), port_(unusedPort()) {
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
