#include "OmbrixCore/Networking/Requests/UploadTaskPublisher.hpp"

#include <gmock/gmock.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixTesting/EventLog.hpp"
#include "OmbrixTesting/FakeURLSession.hpp"

namespace ombrix {
namespace {

using platform::Demand;
using platform::URLError;
using testing::FakeURLSession;
using Answer = FakeURLSession::Answer;

class Recorder final : public platform::Subscriber<UploadAnswer, URLError> {
 public:
  void receiveSubscription(std::shared_ptr<platform::Subscription> given) override {
    subscription = std::move(given);
  }
  Demand receiveValue(const UploadAnswer& answer) override {
    const auto* http = dynamic_cast<const platform::HTTPURLResponse*>(answer.response.get());
    events.add((http ? std::to_string(http->statusCode()) : "no HTTP") + " " +
               std::string(platform::textOf(answer.data)));
    return Demand::none();
  }
  void receiveCompletion(const platform::Completion<URLError>& completion) override {
    events.add(completion.isFinished()
                   ? "finished"
                   : std::to_string(static_cast<int>(completion.failure()->code())));
  }

  std::shared_ptr<platform::Subscription> subscription;
  testing::EventLog events;
};

struct Upload {
  std::shared_ptr<FakeURLSession> session = FakeURLSession::make();
  std::shared_ptr<Recorder> subscriber = std::make_shared<Recorder>();

  Upload() {
    platform::URLRequest request(*platform::URL::parse("https://api.ombrix.example/tracks"));
    request.httpMethod = "PUT";
    uploadTaskPublisher(session, request, platform::dataFrom("track")).receive(subscriber);
  }
  ~Upload() {
    if (subscriber->subscription) subscriber->subscription->cancel();
  }
  void drain() const {
    session->delegateQueue()->sync([] {});
  }
};

// Catches an upload without demand, a second task for more demand, and outcomes that arrive as
// something else.
TEST(UploadTaskPublisherTests, OneTaskOnFirstDemand) {
  const struct {
    Answer answer;
    std::vector<std::string> events;
  } cases[] = {
      {{201, {}, "kept"}, {"201 kept", "finished"}},
      {{500, {}}, {"500 ", "finished"}},
      {{.isHTTP = false}, {"no HTTP ", "finished"}},
      {Answer::failure(URLError(URLError::Code::timedOut)), {"-1001"}},
      {{.error = std::make_shared<const platform::Error>("foreign")}, {"-1"}},
  };
  for (const auto& test : cases) {
    Upload upload;
    EXPECT_EQ(upload.session->madeCount(), 0u);
    upload.subscriber->subscription->request(Demand::max(1));
    upload.subscriber->subscription->request(Demand::unlimited());
    const auto request = upload.session->request(0);
    EXPECT_EQ(request.httpMethod, "PUT");
    EXPECT_EQ(platform::textOf(*request.httpBody), "track");
    upload.session->complete(0, test.answer);
    upload.drain();
    EXPECT_EQ(upload.subscriber->events.take(), test.events);
    upload.subscriber->subscription->request(Demand::max(1));
    EXPECT_EQ(upload.session->madeCount(), 1u);
  }
}

}  // namespace
}  // namespace ombrix
