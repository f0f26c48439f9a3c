#include <atomic>
#include <barrier>
#include <random>
#include <string>
#include <thread>

#include "Faults/FaultRun.hpp"
#include "OmbrixCore/Networking/OmbrixServerAPI.hpp"
#include "OmbrixTesting/FakeURLSession.hpp"
#include "OmbrixTesting/ScopedServerAPI.hpp"
#include "OmbrixTesting/ScopedService.hpp"

namespace ombrix::faults {
namespace {

using platform::HTTPURLResponse;

/// What requests of the two environments may say of the user: each its own token, or nothing.
std::string tokenFor(APIEndpoint endpoint) {
  return endpoint == APIEndpoint::staging ? "of staging" : "of production";
}

bool isRight(const platform::URLRequest& request) {
  const auto sent = request.headers.value("Authorization");
  const bool isStaging = request.url.host() == ServerConfiguration::defaults().staging.host();
  const auto endpoint = isStaging ? APIEndpoint::staging : APIEndpoint::production;
  return !sent || *sent == "Bearer " + tokenFor(endpoint);
}

void waitABit(std::size_t turns) {
  for (std::atomic<std::size_t> turn = 0; turn < turns;) ++turn;
}

}  // namespace

/// An answer of one environment arrives, and a request to it leaves, while the client changes to
/// the other.
void run(const Plan& plan, Outcomes& outcomes) {
  std::atomic<std::size_t> wrongRequests = 0;
  const auto sessions =
      std::make_shared<testing::FakeURLSessionFactory>([&](const platform::URLRequest& request) {
        if (!isRight(request)) ++wrongRequests;
        return testing::FakeURLSession::Answer{};
      });
  const testing::ScopedService<platform::URLSessionFactory> scoped(
      platform::services().urlSessionFactory, sessions);
  const testing::ScopedServerAPI api;
  OmbrixServerAPI& client = api.client();
  const auto session = testing::FakeURLSession::make();

  const std::size_t rounds = plan.rounds(2'000, 1'000'000);
  constexpr std::size_t kRoundsForASend = 50;
  std::mt19937_64 random(plan.seed);
  APIEndpoint next = APIEndpoint::production;
  std::size_t delay = 0;
  std::barrier gate(2);
  std::jthread changer([&] {
    for (std::size_t round = 0; round < rounds; ++round) {
      gate.arrive_and_wait();
      waitABit(delay);
      OmbrixServerAPI::change(next);
      client.setJwtToken(tokenFor(next));
      gate.arrive_and_wait();
    }
  });
  for (std::size_t round = 0; round < rounds; ++round) {
    const auto operation = std::make_shared<OmbrixAPIHttpRequestOperation>(
        client.endpoint(), HttpRequestOperation::HTTPMethod::GET, platform::HTTPHeaders(), nullptr,
        session);
    const HTTPURLResponse answer(operation->url(), 200, {{"Authorization", "Bearer of before"}});
    next = round % 2 == 0 ? APIEndpoint::staging : APIEndpoint::production;
    delay = random() % 2'000;
    const std::size_t ownDelay = random() % 2'000;
    const bool sends = round % kRoundsForASend == 0;
    gate.arrive_and_wait();
    waitABit(ownDelay);
    std::optional<OmbrixServerAPI::APIPublisher<HTTPAnswer>> sent;
    if (sends) {
      sent = client.publisher("resorts");
    } else if (round % 2 == 0) {
      const auto request = operation->buildRequest();
      outcomes.expect(!request->headers.contains("Authorization") ||
                          request->headers.value("Authorization") != "Bearer " + tokenFor(next),
                      "a request to the environment before had not the new one's token");
    } else {
      operation->handle(answer, nullptr, std::nullopt, std::nullopt);
    }
    gate.arrive_and_wait();
    outcomes.expect(client.jwtToken() == tokenFor(next),
                    "the token was the new environment's after the change",
                    client.jwtToken().value_or("none"));
    if (!sent) continue;
    client.completionWrapper<HTTPAnswer>(*sent, [](const auto&) {});
    client.waitUntilAllOperationsAreFinished();
    outcomes.expect(wrongRequests.exchange(0) == 0, "a request had its own environment's token");
  }
}

}  // namespace ombrix::faults
