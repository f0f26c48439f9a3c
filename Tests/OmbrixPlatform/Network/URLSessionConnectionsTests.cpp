#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/sha.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Network/URLSession.hpp"
#include "OmbrixTesting/ForwardingProxy.hpp"
#include "OmbrixTesting/ScopedDir.hpp"
#include "OmbrixTesting/TestServer.hpp"
#include "SessionSupport.hpp"

namespace ombrix::platform {
namespace {

using ::testing::ElementsAre;
using testing::fetch;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using testing::requestTo;
using testing::TestServer;
using Code = URLError::Code;

/// Trusts every server.
class Trusting final : public URLSessionDelegate {
 public:
  [[nodiscard]] bool judgesServers(const std::string&) const override { return true; }
  void didReceiveChallenge(URLSession&, const URLAuthenticationChallenge& challenge,
                           ChallengeHandler handler) override {
    handler(AuthChallengeDisposition::useCredential,
            URLCredential{*challenge.protectionSpace.serverTrust});
  }
};

std::shared_ptr<URLSession> sessionWith(URLConnectionSettings settings, bool isTrusting = true) {
  URLSessionConfiguration configuration;
  configuration.loopbackHosts = {"api.ombrix.test"};
  configuration.connections = std::move(settings);
  return URLSession::make(configuration, isTrusting ? std::make_shared<Trusting>() : nullptr);
}

std::string summaryOf(Code code) { return "error " + std::to_string(static_cast<int>(code)); }

/// The pin of a certificate's key.
std::string pinOf(const std::string& pem) {
  const std::unique_ptr<BIO, decltype(&::BIO_free)> bio(
      ::BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())), &::BIO_free);
  const std::unique_ptr<X509, decltype(&::X509_free)> certificate(
      ::PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr), &::X509_free);
  unsigned char* der = nullptr;
  const int size = ::i2d_X509_PUBKEY(::X509_get_X509_PUBKEY(certificate.get()), &der);
  unsigned char digest[SHA256_DIGEST_LENGTH];
  ::SHA256(der, static_cast<std::size_t>(size), digest);
  ::OPENSSL_free(der);
  std::string text(4 * ((sizeof digest + 2) / 3) + 1, '\0');
  text.resize(static_cast<std::size_t>(
      ::EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), digest, sizeof digest)));
  return text;
}

// Catches servers that show another key than theirs and are spoken to all the same, those refused
// that show theirs, and keys that stand in for the ordinary check.
TEST(URLSessionConnectionsTests, PinnedKeys) {
  const TestServer server;
  const std::string right = pinOf(server.authorityPEM());
  const std::string wrong = pinOf(devserver::makeClientIdentity().certificatePEM);
  const std::string untrusted = summaryOf(Code::serverCertificateUntrusted);
  using Pins = std::map<std::string, std::vector<std::string>>;
  const std::tuple<Pins, bool, std::string> rows[] = {
      {{}, true, "200 ok"},
      {{{"api.ombrix.test", {right}}}, true, "200 ok"},
      {{{"API.Ombrix.test", {wrong, right}}}, true, "200 ok"},
      {{{"api.ombrix.test", {right}}}, false, untrusted},
      {{{"api.ombrix.test", {wrong}}}, true, untrusted},
      {{{"API.Ombrix.test", {wrong}}}, true, untrusted},
      {{{"api.ombrix.test", {}}}, true, untrusted},
      {{{"api.ombrix.test", {"no pin"}}}, true, untrusted},
      {{{"other.ombrix.test", {wrong}}}, true, "200 ok"},
  };
  for (const auto& [pins, isTrusting, expected] : rows) {
    SCOPED_TRACE(&pins - &std::get<0>(rows[0]));
    const auto session = sessionWith({.pinnedKeys = pins}, isTrusting);
    for (int again = 0; again < 2; ++again) {
      const auto request = requestTo(server.url("/status/200?body=ok"));
      EXPECT_EQ(fetch(*session, request).summary(), expected);
    }
  }
  EXPECT_EQ(server.requestCount("/status/200"), 2u * 4u) << "nothing is sent to others";
}

// Catches certificates that are not shown, or to those who should not see them, and failures of
// theirs told as something else.
TEST(URLSessionConnectionsTests, ClientCertificates) {
  const auto ours = devserver::makeClientIdentity();
  const auto secret = devserver::makeClientIdentity("open sesame");
  const auto foreign = devserver::makeClientIdentity();
  const testing::ScopedDir dir;
  const auto path = [&](const char* name, const std::string& pem) { return dir.write(name, pem); };
  const auto certificate = path("certificate", ours.certificatePEM);
  const auto key = path("key", ours.keyPEM);
  const auto both = path("both", ours.certificatePEM + ours.keyPEM);
  const auto secretFile = path("secret", secret.certificatePEM + secret.keyPEM);
  const auto foreignFile = path("foreign", foreign.certificatePEM + foreign.keyPEM);
  const std::string rejected = summaryOf(Code::clientCertificateRejected);
  const std::string required = summaryOf(Code::clientCertificateRequired);
  const struct {
    const std::string& authority;
    std::string host;
    URLClientCertificate shown;
    std::string expected;
  } rows[] = {
      {ours.certificatePEM, "api.ombrix.test", {certificate, key, ""}, "200 ok"},
      {ours.certificatePEM, "api.ombrix.test", {both, "", ""}, "200 ok"},
      {secret.certificatePEM, "api.ombrix.test", {secretFile, "", "open sesame"}, "200 ok"},
      {secret.certificatePEM, "api.ombrix.test", {secretFile, "", "wrong"}, rejected},
      {ours.certificatePEM, "api.ombrix.test", {foreignFile, "", ""}, rejected},
      {ours.certificatePEM, "api.ombrix.test", {certificate, dir.path() / "none", ""}, rejected},
      {ours.certificatePEM, "other.ombrix.test", {both, "", ""}, required},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    TestServer::Options options;
    options.clientAuthorityPEM = row.authority;
    const TestServer server(options);
    const auto session = sessionWith({.clientCertificates = {{row.host, row.shown}}});
    const auto outcome = fetch(*session, requestTo(server.url("/status/200?body=ok")));
    EXPECT_EQ(outcome.summary(), row.expected) << (outcome.error ? outcome.error->what() : "");
    if (outcome.error) {
      EXPECT_EQ(std::string(outcome.error->what()).find("wrong"), std::string::npos);
    }
  }
}

// Catches transfers that pass by the proxy, or go through it though they should not, and failures
// of its own told as those of the server.
TEST(URLSessionConnectionsTests, Proxies) {
  const TestServer plain(TestServer::Wire::plain);
  const TestServer tls;
  const std::string authorization = "Basic dXNlcjpwYXNz";  // user:pass
  testing::ForwardingProxy proxy(authorization), open;
  ::setenv("http_proxy", open.url().c_str(), 1);
  ::setenv("no_proxy", "*", 1);  // of the environment's only
  const std::string far = "http://far.invalid:" + std::to_string(plain.port());
  const std::string secure = "https://far.invalid:" + std::to_string(tls.port());
  const std::string path = "/status/200?body=ok";
  const URLProxy ours{.address = proxy.url(), .user = "user", .password = "pass", .exceptions = {}};
  auto unknown = ours;
  unknown.password = "s3cret";
  auto excepting = ours;
  excepting.exceptions = {"else.invalid", "far.invalid"};
  const std::string way = "CONNECT far.invalid:" + std::to_string(tls.port()) + " HTTP/1.1";
  const struct {
    URLProxy proxy;
    std::string url;
    std::string expected;
    std::vector<std::string> requests;
  } rows[] = {
      {ours, far + path, "200 ok", {"GET " + far + path + " HTTP/1.1"}},
      {ours, secure + path, "200 ok", {way, way}},  // once to ask about the certificate
      {unknown, far + path, "407 ", {"GET " + far + path + " HTTP/1.1"}},
      {unknown, secure + path, summaryOf(Code::cannotConnectToHost), {way}},
      {excepting, secure + path, summaryOf(Code::cannotFindHost), {}},
      {URLProxy(), far + path, summaryOf(Code::cannotFindHost), {}},
      {ours, plain.url(path), "200 ok", {}},  // this machine
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    const auto outcome = fetch(*sessionWith({.proxy = row.proxy}), requestTo(row.url));
    EXPECT_EQ(outcome.summary(), row.expected) << (outcome.error ? outcome.error->what() : "");
    EXPECT_EQ(proxy.takeRequests(), row.requests);
    if (outcome.error) {
      EXPECT_EQ(std::string(outcome.error->what()).find("s3cret"), std::string::npos);
    }
  }
  EXPECT_THAT(open.takeRequests(), IsEmpty());
  ::unsetenv("no_proxy");
  EXPECT_EQ(fetch(*sessionWith({}), requestTo(far + path)).summary(), "200 ok");
  EXPECT_EQ(open.takeRequests().size(), 1u) << "by default it is that of the environment";
  ::unsetenv("http_proxy");
}

}  // namespace
}  // namespace ombrix::platform
