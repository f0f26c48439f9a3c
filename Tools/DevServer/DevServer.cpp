#include "Tools/DevServer/DevServer.hpp"

#include <fmt/format.h>

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/post.hpp>
#include <fstream>
#include <future>
#include <thread>
#include <utility>

#include "OmbrixPlatform/Values/Error.hpp"
#include "Tools/DevServer/HTTP/Connection.hpp"
#include "Tools/DevServer/Service/ServerCore.hpp"

namespace ombrix::devserver {

using asio::ip::tcp;

class DevServer::Running {
 public:
  explicit Running(Options options) : core(std::move(options)), acceptor_(core.context) {
    listen();
    accept();
    thread_ = std::thread([this] { core.context.run(); });
  }
  ~Running() { stop(); }
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;

  void stop() {
    if (!thread_.joinable()) return;
    asio::post(core.context, [this] {
      asio::error_code ignored;
      acceptor_.close(ignored);
      endConnections(End::drop);
      core.context.stop();
    });
    thread_.join();
    core.gates.clear();
  }

  /// Runs on the server's thread.
  void endConnections(End how) {
    const auto ending = core.connections;
    for (const auto& connection : ending) connection->end(how);
  }

  /// Runs on the server's thread; the caller waits for it.
  template <class Work>
  void perform(Work work) {
    if (!thread_.joinable()) return;
    std::promise<void> done;
    asio::post(core.context, [&] {
      work();
      done.set_value();
    });
    done.get_future().wait();
  }

  ServerCore core;
  std::uint16_t port = 0;

 private:
  void listen() {
    const auto address = core.options.usesIPv6 ? asio::ip::address(asio::ip::address_v6::loopback())
                                               : asio::ip::address_v4::loopback();
    const tcp::endpoint endpoint(address, core.options.port);
    try {
      acceptor_.open(endpoint.protocol());
      acceptor_.set_option(tcp::acceptor::reuse_address(true));
      acceptor_.bind(endpoint);
      acceptor_.listen();
      port = acceptor_.local_endpoint().port();
    } catch (const asio::system_error& error) {
      throw platform::Error(
          fmt::format("cannot listen on port {}: {}", core.options.port, error.code().message()));
    }
  }

  void accept() {
    acceptor_.async_accept([this](const asio::error_code& error, tcp::socket socket) {
      if (error == asio::error::operation_aborted) return;
      if (!error) {
        const auto connection = std::make_shared<Connection>(std::move(socket), core, ++accepted_);
        core.connections.insert(connection);
        connection->start();
      }
      accept();
    });
  }

  tcp::acceptor acceptor_;
  std::uint64_t accepted_ = 0;
  std::thread thread_;
};

DevServer::DevServer(Options options) : running_(std::make_unique<Running>(std::move(options))) {}
DevServer::~DevServer() = default;

void DevServer::stop() { running_->stop(); }

std::uint16_t DevServer::port() const noexcept { return running_->port; }

std::string DevServer::baseURL() const {
  const Options& options = running_->core.options;
  if (options.usesTLS) return fmt::format("https://api.ombrix.test:{}/", port());
  return fmt::format("http://{}:{}/", options.usesIPv6 ? "[::1]" : "127.0.0.1", port());
}

std::string DevServer::url(std::string_view path) const {
  return baseURL().append(path.substr(path.starts_with('/') ? 1 : 0));
}

const std::string& DevServer::authorityPEM() const noexcept {
  return running_->core.identity.authorityPEM;
}

void DevServer::writeAuthority(const std::filesystem::path& file) const {
  std::ofstream out(file, std::ios::binary);
  out << authorityPEM();
  if (!out.flush()) throw platform::Error("cannot write " + file.string());
}

Counters DevServer::counters() const { return running_->core.journal.counters(); }

std::uint64_t DevServer::requestCount(const std::string& path) const {
  return running_->core.journal.requestCount(path);
}

std::vector<std::shared_ptr<const Request>> DevServer::requests(std::string_view path) const {
  return running_->core.journal.requests(path);
}

void DevServer::forgetRequests() { running_->core.journal.forgetRequests(); }

bool DevServer::waitUntil(const std::function<bool(const Counters&)>& areWanted,
                          std::chrono::steady_clock::duration timeout) const {
  return running_->core.journal.waitUntil(areWanted, timeout);
}

void DevServer::route(std::string method, std::string_view path, Handler handler, Access access) {
  running_->core.router.add(std::move(method), path, access, std::move(handler));
}

void DevServer::setMaintenance(bool isOn) { running_->core.isInMaintenance = isOn; }
void DevServer::setTokenRotation(std::uint64_t every) {
  running_->core.sessions.setRotation(every);
}
void DevServer::revokeTokens() { running_->core.sessions.revokeAll(); }
void DevServer::openGate(const std::string& gate) { running_->core.gates.open(gate); }
void DevServer::shutGate(const std::string& gate) { running_->core.gates.shut(gate); }

void DevServer::scriptConnections(Script script, std::size_t count) {
  running_->core.setConnectionScript(std::move(script), count);
}

void DevServer::endConnections(End how) {
  running_->perform([&] { running_->endConnections(how); });
}

}  // namespace ombrix::devserver
