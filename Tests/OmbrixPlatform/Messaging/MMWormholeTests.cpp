#include "OmbrixPlatform/Messaging/MMWormhole.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "OmbrixPlatform/Coding/PropertyListSerialization.hpp"
#include "OmbrixPlatform/Files/FileManager.hpp"
#include "OmbrixPlatform/Messaging/Detail/MessageFile.hpp"
#include "OmbrixTesting/EventLog.hpp"
#include "OmbrixTesting/Processes/ChildProcess.hpp"
#include "OmbrixTesting/Sanitizers.hpp"
#include "OmbrixTesting/ScopedDirectories.hpp"
#include "OmbrixTesting/WithoutOverride.hpp"

namespace ombrix::platform {
namespace {

namespace fs = std::filesystem;
using testing::ChildProcess;
using ::testing::ElementsAre;
using testing::EventLog;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class MMWormholeTests : public ::testing::Test {
 protected:
  /// The program at the channel's other end.
  class Other {
   public:
    explicit Other(const fs::path& group)
        : process_({TEST_AGENT, "messages", "group", group.string()}) {}

    void tell(const std::string& line) {
      process_.send(line);
      ASSERT_EQ(process_.readLine(), "done") << line;
    }
    void kill() { process_.kill(); }

   private:
    ChildProcess process_;
  };

  MMWormholeTests() { directories_.setGroupContainer(true); }
  ~MMWormholeTests() override { EXPECT_THAT(failures_.take(), IsEmpty()); }

  fs::path group() const { return directories_.dir().path() / "group"; }
  fs::path folder() const { return group() / "wormhole"; }
  std::unique_ptr<MMWormhole> channel() {
    return std::make_unique<MMWormhole>("group", "wormhole", [this](const std::string& message) {
      failureTexts_.add(message);
      failures_.add("failure");
    });
  }
  /// Notes what arrives: texts as they are, numbers in digits.
  ObservationToken note(MMWormhole& channel, const std::string& identifier) {
    return channel.listenForMessageWithIdentifier(identifier, [&](const PropertyList& message) {
      arrived_.add(message.text() ? *message.text() : std::to_string(message.integer().value()));
    });
  }

  testing::ScopedDirectories directories_;
  EventLog failures_, failureTexts_, arrived_;
};

// Catches messages that are lost, told twice, told to their own sender, or told though they were
// there before; equal messages taken for one; and a getter that gives another than the last.
TEST_F(MMWormholeTests, MessagesReachTheOtherProcess) {
  Other other(group());
  other.tell("pass units before");
  const auto own = channel(), second = channel();
  const auto listening = note(*own, "units");
  EventLog heardBySecond;
  const auto another = second->listenForMessageWithIdentifier(
      "units", [&](const PropertyList& message) { heardBySecond.add(*message.text()); });
  EXPECT_EQ(own->messageWithIdentifier("units"), PropertyList("before"));
  EXPECT_EQ(own->messageWithIdentifier("other"), std::nullopt);
  own->passMessageObject("own", "units");
  EXPECT_EQ(own->messageWithIdentifier("units"), PropertyList("own"));
  other.tell("pass other other");
  for (int round = 0; round < 3; ++round) {
    other.tell("pass units miles");
    EXPECT_THAT(arrived_.takeOnce("miles"), ElementsAre("miles"));
    EXPECT_THAT(heardBySecond.takeOnce("miles"), ElementsAre("miles"));
    EXPECT_EQ(own->messageWithIdentifier("units"), PropertyList("miles"));
  }
  other.tell("clear units");
  other.tell("pass units last");
  EXPECT_THAT(arrived_.takeOnce("last"), ElementsAre("last"));
  EXPECT_THAT(heardBySecond.takeOnce("last"), ElementsAre("last"));
  own->clearMessageContentsForIdentifier("units");
  EXPECT_EQ(own->messageWithIdentifier("units"), std::nullopt);
  own->clearMessageContentsForIdentifier("units");
  own->clearMessageContentsForIdentifier("never passed");

  // A closed channel calls nobody, and still knows what is there.
  own->close();
  own->close();
  other.tell("pass units after");
  EXPECT_THAT(heardBySecond.takeOnce("after"), ElementsAre("after"));
  EXPECT_EQ(own->messageWithIdentifier("units"), PropertyList("after"));
  EXPECT_THAT(arrived_.take(), IsEmpty());
}

// Catches a burst whose last message is not told, or that tells one twice or out of order.
TEST_F(MMWormholeTests, OfABurstTheLastIsTold) {
  const auto own = channel();
  const auto listening = note(*own, "n");
  Other other(group());
  int before = 0;
  for (const int count : {1, 2, 300}) {
    other.tell("burst n " + std::to_string(count));
    for (const auto& told : arrived_.takeOnce(std::to_string(count))) {
      const int number = std::stoi(told);
      EXPECT_GT(number, before);
      before = number;
    }
    EXPECT_EQ(own->messageWithIdentifier("n"), PropertyList(count));
    before = 0;
  }
  EXPECT_THAT(arrived_.take(), IsEmpty());
}

// Catches a channel that stays deaf when its folder, or the group's, comes late or comes again.
TEST_F(MMWormholeTests, TheFolderMayComeAndGo) {
  const auto own = channel();
  const auto listening = note(*own, "units");
  EXPECT_EQ(own->messageWithIdentifier("units"), std::nullopt);
  EXPECT_FALSE(fs::exists(group())) << "asking makes nothing";
  Other other(group());
  for (const fs::path& removed : {fs::path(), folder(), group(), folder()}) {
    if (!removed.empty()) {
      fs::remove_all(removed);
      const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
      while (own->messageWithIdentifier("units") && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
      }
      EXPECT_EQ(own->messageWithIdentifier("units"), std::nullopt);
    }
    other.tell("pass units miles");
    EXPECT_THAT(arrived_.takeOnce("miles"), ElementsAre("miles")) << removed;
    EXPECT_EQ(own->messageWithIdentifier("units"), PropertyList("miles"));
  }
}

// Catches damaged files that are taken for messages, end the channel, or are reported for ever.
TEST_F(MMWormholeTests, DamagedFilesAreSkipped) {
  Other other(group());
  other.tell("pass units miles");
  const fs::path file = folder() / "units.message";
  const std::string whole = directories_.dir().read(file);
  const auto own = channel();
  const auto listening = note(*own, "units");
  int round = 0;
  for (const std::string& contents :
       {std::string(), whole.substr(0, whole.size() / 2), "bplist00" + whole.substr(20),
        std::string("miles"), std::string("<plist><string>miles</string></plist>")}) {
    directories_.dir().write(folder() / "new", contents);
    fs::rename(folder() / "new", file);
    EXPECT_THAT(failures_.takeOnce("failure"), ElementsAre("failure")) << contents;
    EXPECT_THAT(failureTexts_.take(),
                ElementsAre(HasSubstr("Data: Error reading message \"units\": ")));
    for (int i = 0; i < 3; ++i) EXPECT_EQ(own->messageWithIdentifier("units"), std::nullopt);
    const std::string text = "after" + std::to_string(++round);
    other.tell("pass units " + text);
    EXPECT_THAT(arrived_.takeOnce(text), ElementsAre(text));
  }
}

// Catches failures that are not reported, or end more than the one message.
TEST_F(MMWormholeTests, WhatCannotBePassedIsReported) {
  const auto own = channel();
  EXPECT_FALSE(own->passMessageObject("miles", std::string(300, 'x')));
  EXPECT_THAT(failures_.take(), ElementsAre("failure"));
  fs::create_directories(folder() / "units.message");
  EXPECT_FALSE(own->passMessageObject("miles", "units"));
  EXPECT_THAT(failures_.take(), ElementsAre("failure"));
  EXPECT_EQ(own->messageWithIdentifier("units"), std::nullopt);
  EXPECT_EQ(own->messageWithIdentifier("units"), std::nullopt);
  EXPECT_THAT(failures_.take(), ElementsAre("failure"));
  EXPECT_THAT(failureTexts_.take(),
              ElementsAre(HasSubstr("passing"), HasSubstr("passing"), HasSubstr("reading")));
  ASSERT_EQ(::mkfifo((folder() / "fifo.message").c_str(), 0600), 0);
  EXPECT_EQ(own->messageWithIdentifier("fifo"), std::nullopt) << "and waits for no sender";
  EXPECT_THAT(failures_.take(), ElementsAre("failure"));
  EXPECT_THAT(failureTexts_.take(), ElementsAre(HasSubstr("reading")));
  EXPECT_THROW(own->passMessageObject("\xFF", "bad"), PropertyListError);
  EXPECT_TRUE(own->passMessageObject("miles", "fine"));
  EXPECT_EQ(own->messageWithIdentifier("fine"), PropertyList("miles"));
  for (const auto& file : fs::directory_iterator(folder())) {
    EXPECT_NE(file.path().extension(), ".new") << "left over";
  }

  directories_.setGroupContainer(false);
  const auto none = channel();
  EXPECT_THAT(failures_.take(), ElementsAre("failure"));
  EXPECT_THAT(failureTexts_.take(), ElementsAre(HasSubstr("no folder of the group \"group\"")));
  EXPECT_EQ(none->folder(), std::nullopt);
  const auto listening = note(*none, "units");
  EXPECT_FALSE(none->passMessageObject("miles", "units"));
  EXPECT_EQ(none->messageWithIdentifier("units"), std::nullopt);
  none->clearMessageContentsForIdentifier("units");
}

// Catches a getter that reads its file though nothing has changed.
TEST_F(MMWormholeTests, TheLastMessageStaysInMemory) {
  Other(group()).tell("pass units miles");
  const auto own = channel();
  EXPECT_EQ(own->messageWithIdentifier("units"), PropertyList("miles"));
  fs::permissions(folder() / "units.message", fs::perms::none);
  const testing::WithoutOverride withoutOverride;
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(own->messageWithIdentifier("units"), PropertyList("miles"));
  }
}

// Catches a killed sender that leaves half a message, a lock, or files that pile up.
TEST_F(MMWormholeTests, KilledSendersHarmNothing) {
  const auto own = channel();
  const auto checkWhole = [&](MMWormhole& reader) {
    const auto message = reader.messageWithIdentifier("units");
    ASSERT_TRUE(message && message->text());
    const std::string& text = *message->text();
    ASSERT_EQ(text, std::string(text.size(), static_cast<char>('a' + text.size() % 26)));
  };
  const auto listening = own->listenForMessageWithIdentifier(
      "units", [&](const PropertyList&) { arrived_.add("message"); });
  for (int round = 0; round < (testing::kUnderSanitizer ? 10 : 40); ++round) {
    Other other(group());
    other.tell("storm units");
    EXPECT_EQ(arrived_.takeOnce("message").back(), "message");
    for (int i = 0; i < round * 5; ++i) checkWhole(*own);
    other.kill();
    checkWhole(*channel());
  }
  EXPECT_LE(std::distance(fs::directory_iterator(folder()), fs::directory_iterator()), 2);
}

// Catches data that several threads change at once, a listener that is called after its end, and
// channels that cannot go while messages come. For the thread sanitizer above all.
TEST_F(MMWormholeTests, ThreadsShareAChannel) {
  Other other(group());
  const auto own = channel();
  std::atomic<bool> isDone = false;
  std::vector<std::thread> threads;
  threads.emplace_back([&] {
    while (!isDone) {
      auto isOver = std::make_shared<std::atomic<bool>>(false);
      auto token = own->listenForMessageWithIdentifier(
          "n", [isOver](const PropertyList&) { EXPECT_FALSE(*isOver); });
      std::this_thread::yield();
      token.cancel();
      *isOver = true;
    }
  });
  threads.emplace_back([&] {
    while (!isDone) {
      const auto message = own->messageWithIdentifier("n");
      EXPECT_TRUE(!message || message->integer());
      own->passMessageObject(0, "mine");
    }
  });
  threads.emplace_back([&] {
    while (!isDone) {
      const auto brief = channel();
      const auto token = brief->listenForMessageWithIdentifier("n", [](const PropertyList&) {});
      (void)brief->messageWithIdentifier("mine");
    }
  });
  for (int i = 0; i < 5; ++i) other.tell("burst n 50");
  isDone = true;
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(channel()->messageWithIdentifier("n"), PropertyList(50));
}

}  // namespace
}  // namespace ombrix::platform
