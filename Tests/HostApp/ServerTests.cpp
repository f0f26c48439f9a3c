#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Examples/HostApp/Service/Patience.hpp"
#include "OmbrixPlatform/Text/UTF8.hpp"
#include "OmbrixTesting/Processes/ChildProcess.hpp"
#include "OmbrixTesting/ScopedDir.hpp"
#include "OmbrixTesting/TestServer.hpp"
#include "Program.hpp"

namespace ombrix::hostapp {
namespace {

using ::testing::HasSubstr;

/// The program against a local web service over TLS.
class ServerTests : public ::testing::Test {
 protected:
  void SetUp() override { ::setenv("OMBRIX_SERVER", server.baseURL().c_str(), 1); }
  void TearDown() override { ::unsetenv("OMBRIX_SERVER"); }

  const testing::ScopedDir dir;
  testing::TestServer server;
};

// Catches messages of a server that are cut within a character, or that steer the terminal.
TEST_F(ServerTests, MessagesOfTheServerAreHarmless) {
  std::string message = "\\u001b[31m\\u009b1mred\\u007f";
  for (int i = 0; i < 300; ++i) message += "é";
  for (const int status : {403, 422}) {
    server.route("GET", "/steering", [=](const auto&) {
      return devserver::Response{.status = status,
                                 .headers = {{"X-Title", "\x1b]0;mine\x07"}},
                                 .body = "{\"message\":\"" + message + "\"}"};
    });
    const std::string output = run(dir, "request steering -v").output;
    EXPECT_THAT(output, HasSubstr("\uFFFD[31m\uFFFD1mred\uFFFDéé"));
    EXPECT_THAT(output, HasSubstr("éé…\n"));
    EXPECT_THAT(output, HasSubstr("\uFFFD]0;mine\uFFFD"));
    EXPECT_EQ(output.find_first_of("\x1b\x07\x7f"), std::string::npos);
    EXPECT_TRUE(platform::stringFromUTF8(platform::bytesOf(output)));
  }
}

// Catches a service on ::1 alone that its own client does not find.
TEST_F(ServerTests, AServiceOnTheOtherLoopbackAddressIsFound) {
  for (const bool isPlain : {false, true}) {
    std::vector<std::string> command{OMBRIX_PROGRAM, "serve", "--ipv6"};
    if (isPlain) command.emplace_back("--http");
    testing::ChildProcess other(command);
    const auto url = other.readLine();
    if (!url) GTEST_SKIP() << "this machine has no ::1";
    EXPECT_THAT(run(dir, "request resorts/1 --server " + *url).output, HasSubstr("Weisshorn"));
  }
}

// Catches answers shown wrongly, failures that exit with 0, and texts that are not the user's.
TEST_F(ServerTests, RequestsShowTheAnswerAndItsFate) {
  struct Case {
    const char* arguments;
    int status;
    const char* says;
  };
  const Case cases[] = {
      // clang-format off
      {"resorts/1",                                   0, "\"name\": \"Weisshorn\""},
      {"resorts/1 --raw",                             0, "\"name\":\"Weisshorn\""},
      {"/resorts/1 -v",                               0, "> Accept: application/json"},
      {"'cache/a?cache-control=max-age=60'",          0, "200, from the network"},
      {"'cache/a?cache-control=max-age=60'",          0, "200, from the cache in"},
      {"'cache/b?cache-control=no-cache&etag=%22x%22'", 0, "200, from the network"},
      {"'cache/b?cache-control=no-cache&etag=%22x%22'", 0, "validated by the server"},
      {"echo --data '{\"a\":1}'",                     0, "\"method\": \"POST\""},
      {"echo --header 'X-Mine: yes'",                 0, "X-Mine"},
      {"days",                                        1, "issue with your username or password"},
      {"days --login skier@ombrix.test:powder",       0, "[]"},
      {"days --login skier@ombrix.test:ice",          1, "issue with your username or password"},
      {"account --data '{}'",                         1, "ombrix: The name"},
      {"status/503",                                  1, "undergoing maintenance"},
      {"fault/close-in-body",                         1, "Are you offline?"},
      {"nowhere --cache-only",                        1, "Are you offline?"},
      {"resorts --header wrong",                      2, "--header"},
      {"resorts --server ftp://host",                 2, "--server"},
      {"resorts --method BREW",                       2, "--method"},
      // clang-format on
  };
  ::setenv("XDG_CACHE_HOME", (dir.path() / "cache").c_str(), 1);
  for (const Case& c : cases) {
    const Outcome outcome = run(dir, std::string("request ") + c.arguments);
    EXPECT_EQ(outcome.status, c.status) << c.arguments << "\n" << outcome.output;
    EXPECT_THAT(outcome.output, HasSubstr(c.says)) << c.arguments;
  }
}

// Catches a password that is shown.
TEST_F(ServerTests, RequestsShowNoPassword) {
  std::string url = server.url("/status/200");
  url.insert(url.find("//") + 2, "me:secret@");
  const auto output = run(dir, "request -v " + url).output;
  EXPECT_THAT(output, HasSubstr("/status/200"));
  EXPECT_THAT(output, ::testing::Not(HasSubstr("secret")));
}

// Catches uploads given up that were redirected after long, or waited for although nothing goes.
TEST(PatienceTests, CountsFromTheLastChange) {
  using std::chrono::seconds;
  const struct {
    int second, sentBytes;
    bool isOver;
  } rows[]{{29, 0, false},  {30, 5, false},  {300, 5, false},
           {301, 0, false}, {331, 0, false}, {332, 0, true}};
  Patience patience(seconds(30), {});
  for (const auto& row : rows) {
    EXPECT_EQ(patience.isOver(row.sentBytes, Patience::TimePoint(seconds(row.second))), row.isOver)
        << row.second;
  }
}

// Catches a day that arrives without its track, or under another name, and uploads whose failure is
// not explained.
TEST_F(ServerTests, ADayIsUploadedWithItsTrack) {
  ASSERT_EQ(run(dir, "sample day.csv --runs 2").status, 0);
  const Outcome outcome = run(dir, "day day.csv --upload --login skier@ombrix.test:powder");
  EXPECT_EQ(outcome.status, 0) << outcome.output;
  const std::string size = std::to_string(dir.read("day.csv").size());
  const std::string grouped = std::string(size).insert(size.size() - 3, ",");
  EXPECT_THAT(outcome.output, HasSubstr("the track with " + grouped + " bytes"));
  const auto days = run(dir, "request days --login skier@ombrix.test:powder").output;
  EXPECT_THAT(days, HasSubstr("\"distance"));
  const struct {
    const char* arguments;
    int status;
    std::vector<std::string> says;
  } rows[] = {
      {"day.csv tracks/mine", 1, {"HTTP/1.1 401\n", "The server says: Sign in first."}},
      {"day.csv status/413 -v", 1, {"> PUT ", "HTTP/1.1 413\n< ", "no body of that length"}},
      {"none tracks/mine", 1, {"ombrix: Could not open \"none\": No such file"}},
      {"day.csv tracks/mine --login skier@ombrix.test:powder",
       0,
       {"201, from", "\"size\": " + size}},
  };
  for (const auto& row : rows) {
    const Outcome upload = run(dir, std::string("upload ") + row.arguments);
    EXPECT_EQ(upload.status, row.status) << row.arguments;
    for (const auto& text : row.says) EXPECT_THAT(upload.output, HasSubstr(text));
  }
}

}  // namespace
}  // namespace ombrix::hostapp
