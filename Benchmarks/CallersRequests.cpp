// Requests of 1, 6 and 64 callers that each wait for their answer: to the benchmarks' own server
// and, where it is installed, to nginx, plain and over TLS with HTTP/2; beside libcurl's multi
// interface on a thread of its own.

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>

#include "Benchmarks/RequestClients.hpp"
#include "OmbrixTesting/Processes/UnusedPort.hpp"

namespace {

namespace fs = std::filesystem;
using bursts::Target;

/// nginx with one worker, on this process's ports until it ends.
struct Nginx {
  int plain = ombrix::testing::unusedPort();
  int secure = ombrix::testing::unusedPort();

  /// Starts it before this process has any thread; nothing where there is none.
  static std::optional<Nginx> start();
};

bool answers(int port) {
  const int probe = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  const bool isThere =
      ::connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  ::close(probe);
  return isThere;
}

std::optional<Nginx> Nginx::start() {
  char name[] = "/tmp/ombrix-nginx-XXXXXX";
  const fs::path folder = ::mkdtemp(name);
  const std::string in = "cd " + folder.string() + " && ";
  const auto run = [&](const std::string& command) {
    return std::system((in + command + " >/dev/null 2>&1").c_str()) == 0;
  };
  const bool isInstalled =
      run("nginx -v") && run("openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 "
                             "-nodes -subj /CN=api.ombrix.test -days 2 -keyout key -out cert");
  if (!isInstalled) {
    std::fputs("nginx and openssl are not installed: no rows of nginx\n", stderr);
    fs::remove_all(folder);
    return std::nullopt;
  }
  const Nginx server;
  std::ofstream(folder / "n") << std::string(bursts::kBodyBytes, 'x');
  std::ofstream(folder / "conf")
      << "daemon off; master_process off; pid " << folder.string()
      << "/pid; error_log stderr crit; events {} http { access_log off; "
         "keepalive_requests 1000000000; default_type text/plain; "
         "open_file_cache max=16; server { listen 127.0.0.1:"
      << server.plain << "; listen 127.0.0.1:" << server.secure
      << " ssl http2; ssl_certificate cert; ssl_certificate_key key; root " << folder.string()
      << "; add_header Cache-Control no-store; } }";
  if (::fork() == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    const std::string configuration = folder / "conf";
    ::execlp("nginx", "nginx", "-p", folder.c_str(), "-c", configuration.c_str(), nullptr);
    std::_Exit(1);
  }
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!answers(server.secure)) {
    if (std::chrono::steady_clock::now() > deadline) std::abort();
    ::usleep(1000);
  }
  static const struct Removal {
    fs::path folder;
    ~Removal() { fs::remove_all(folder); }
  } removal{folder};
  return server;
}

template <class Client>
void add(const std::string& server, const char* contender, const Target& target) {
  benchmark::RegisterBenchmark(
      (server + "/" + contender).c_str(),
      [target](benchmark::State& state) { bursts::callers<Client>(state, target); })
      ->Arg(1)
      ->Arg(6)
      ->Arg(64)
      ->UseRealTime()
      ->Unit(benchmark::kMillisecond);
}

void addAll(const std::string& server, const Target& target) {
  add<bursts::Session>(server, "ours", target);
  add<bursts::CurlMulti>(server, "curl-multi", target);
  add<bursts::Operations>(server, "client, operations", target);
  add<bursts::Publishers>(server, "client, publishers", target);
}

[[maybe_unused]] const bool areAdded = [] {
  addAll("request of callers", {});
  const auto nginx = Nginx::start();
  if (!nginx) return false;
  addAll("request to nginx", {"http://127.0.0.1:" + std::to_string(nginx->plain) + "/", false});
  addAll("request to nginx, HTTP2",
         {"https://api.ombrix.test:" + std::to_string(nginx->secure) + "/", true});
  return true;
}();

}  // namespace
