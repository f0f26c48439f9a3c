#include "OmbrixTesting/Processes/EtcdServer.hpp"

#include <csignal>
#include <cstdlib>
#include <future>
#include <stdexcept>

#include "OmbrixPlatform/Detail/TextForms.hpp"
#include "OmbrixPlatform/Network/URLSession.hpp"
#include "OmbrixTesting/Processes/UnusedPort.hpp"

namespace ombrix::testing {
namespace {

using platform::JSON;

constexpr const char* kRootPassword = "root's";

/// Trusts any server: the test has started it.
class Believing final : public platform::URLSessionDelegate {
 public:
  bool judgesServers(const std::string& /*host*/) const override { return true; }
  void didReceiveChallenge(platform::URLSession& /*session*/,
                           const platform::URLAuthenticationChallenge& challenge,
                           ChallengeHandler completionHandler) override {
    completionHandler(AuthChallengeDisposition::useCredential,
                      platform::URLCredential{
                          challenge.protectionSpace.serverTrust.value_or(platform::SecTrust())});
  }
};

JSON post(const platform::URL& server, const std::string& path, const JSON& body,
          const std::string& token) {
  platform::URLRequest request(*platform::URL::parse(path, server));
  request.httpMethod = "POST";
  request.httpBody = body.rawData();
  if (!token.empty()) request.headers.set("Authorization", token);
  std::promise<std::string> promise;
  auto answer = promise.get_future();
  const auto session = platform::URLSession::make(platform::URLSessionConfiguration::ephemeral(),
                                                  std::make_shared<Believing>());
  session
      ->dataTask(std::move(request),
                 [&](auto data, const auto&, const auto& error) {
                   promise.set_value(
                       error ? error->what()
                             : std::string(platform::textOf(data.value_or(platform::Data()))));
                 })
      ->resume();
  const std::string text = answer.get();
  session->close();
  try {
    if (auto json = JSON::parse(text); json["error"].isNull()) return json;
  } catch (const platform::JSONError&) {
  }
  throw std::runtime_error(path + ": " + text);
}

}  // namespace

bool EtcdServer::isInstalled() { return std::system("command -v etcd >/dev/null 2>&1") == 0; }

EtcdServer::EtcdServer(std::filesystem::path folder, Options options)
    : folder_(std::move(folder)), options_(std::move(options)) {
  std::filesystem::create_directories(folder_);
  if (options_.isSecure) makeCertificates();
  // Another program may take the port first.
  constexpr int kMostAttempts = 5;
  for (int attempt = 1; port_ = unusedPort(), !hasStarted(); ++attempt) {
    if (attempt == kMostAttempts) throw std::runtime_error("etcd did not start");
  }
}

platform::URL EtcdServer::url() const {
  return *platform::URL::parse((options_.isSecure ? "https" : "http") +
                               ("://127.0.0.1:" + std::to_string(port_)));
}

void EtcdServer::makeCertificates() const {
  const std::string line =
      "cd '" + folder_.string() +
      "' && openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 30 "
      "-subj '/CN=Test authority' -keyout ca.key -out ca.pem 2>/dev/null && "
      "openssl req -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -subj /CN=etcd "
      "-keyout server.key -out server.csr 2>/dev/null && "
      "echo subjectAltName=IP:127.0.0.1 > names && openssl x509 -req -in server.csr -CA ca.pem "
      "-CAkey ca.key -CAcreateserial -days 30 -extfile names -out server.pem 2>/dev/null";
  if (std::system(line.c_str()) != 0) throw std::runtime_error("no certificates were made");
}

void EtcdServer::start() {
  if (!hasStarted()) throw std::runtime_error("etcd did not start");
}

bool EtcdServer::hasStarted() {
  const std::string peer = "http://127.0.0.1:0", folder = folder_.string();
  // Its log is read to the end: otherwise it would block on a full pipe.
  std::vector<std::string> command{"/bin/bash",
                                   "-c",
                                   "exec etcd \"$@\" > >(exec sed -un '/client requests/p') 2>&1",
                                   "etcd",
                                   "--data-dir",
                                   folder + "/data",
                                   "--listen-client-urls",
                                   url().absoluteString(),
                                   "--advertise-client-urls",
                                   url().absoluteString(),
                                   "--listen-peer-urls",
                                   peer,
                                   "--initial-advertise-peer-urls",
                                   peer,
                                   "--initial-cluster",
                                   "default=" + peer};
  if (options_.isSecure) {
    for (const char* word : {"--cert-file", "/server.pem", "--key-file", "/server.key"}) {
      command.push_back(*word == '/' ? folder + word : word);
    }
  }
  command.insert(command.end(), options_.arguments.begin(), options_.arguments.end());
  process_.emplace(std::move(command));
  return process_->readLine().has_value();
}

void EtcdServer::pause() { process_->signal(SIGSTOP); }
void EtcdServer::resume() { process_->signal(SIGCONT); }

std::string EtcdServer::coded(std::string_view text) {
  std::string coded;
  platform::detail::appendBase64(coded, platform::bytesOf(text));
  return coded;
}

JSON EtcdServer::call(const std::string& path, JSON body) const {
  std::string token;
  if (wantsLogin_) {
    const JSON root = JSON::Dictionary{{"name", "root"}, {"password", kRootPassword}};
    token = post(url(), "/v3/auth/authenticate", root, "")["token"].stringValue();
  }
  return post(url(), path, body, token);
}

void EtcdServer::requireLogin(const std::string& name, const std::string& password,
                              const std::string& prefix) {
  const auto object = [](auto... fields) { return JSON(JSON::Dictionary{fields...}); };
  using Field = JSON::Dictionary::Entry;
  if (!hasUsers_) {
    std::string end = prefix;
    ++end.back();
    call("/v3/auth/user/add", object(Field{"name", "root"}, Field{"password", kRootPassword}));
    call("/v3/auth/user/grant", object(Field{"user", "root"}, Field{"role", "root"}));
    call("/v3/auth/user/add", object(Field{"name", name}, Field{"password", password}));
    call("/v3/auth/role/add", object(Field{"name", "member"}));
    call("/v3/auth/role/grant",
         object(Field{"name", "member"},
                Field{"perm", object(Field{"permType", "READWRITE"}, Field{"key", coded(prefix)},
                                     Field{"range_end", coded(end)})}));
    call("/v3/auth/user/grant", object(Field{"user", name}, Field{"role", "member"}));
    hasUsers_ = true;
  }
  call("/v3/auth/enable", object());
  wantsLogin_ = true;
}

void EtcdServer::stopRequiringLogin() {
  call("/v3/auth/disable", JSON::Dictionary());
  wantsLogin_ = false;
}

void EtcdServer::compact(std::int64_t revision) const {
  call("/v3/kv/compaction", JSON::Dictionary{{"revision", std::to_string(revision)}});
}

void EtcdServer::setFull(bool isFull) const {
  const JSON status = call("/v3/maintenance/status", JSON::Dictionary());
  call("/v3/maintenance/alarm",
       JSON::Dictionary{{"action", isFull ? "ACTIVATE" : "DEACTIVATE"},
                        {"memberID", status["header"]["member_id"].stringValue()},
                        {"alarm", "NOSPACE"}});
}

}  // namespace ombrix::testing
