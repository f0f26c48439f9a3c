#include <gmock/gmock.h>
#include <sys/stat.h>

#include <fstream>
#include <latch>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "OmbrixCore/Networking/Requests/UploadTaskPublisher.hpp"
#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixPlatform/Concurrency/Task.hpp"
#include "OmbrixTesting/EventLog.hpp"
#include "OmbrixTesting/Eventually.hpp"
#include "OmbrixTesting/ManualClock.hpp"
#include "OmbrixTesting/Sanitizers.hpp"
#include "OmbrixTesting/ScopedDir.hpp"
#include "OmbrixTesting/TestServer.hpp"
#include "Tests/OmbrixCore/Networking/ServerAPIFixture.hpp"

namespace ombrix {
namespace {

using devserver::Response;
using platform::textOf;
using platform::URLError;

std::string pattern(std::size_t size) {
  std::string text(size, 'x');
  for (std::size_t i = 0; i < size; i += 7) text[i] = static_cast<char>('a' + i % 26);
  return text;
}

/// What an asynchronous request gives or throws.
template <class Value>
OmbrixServerAPI::Result<Value> outcome(platform::Async<Value> request) {
  try {
    return std::move(request).get();
  } catch (const HTTPError& error) {
    return std::unexpected(error);
  }
}

/// By how many bytes the resident memory rises at the most while a closure runs.
template <class Work>
std::size_t peakOf(Work work) {
  const auto kilobytes = [](const std::string& name) {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
      if (word == name && status >> word) return std::stoull(word);
    }
    return 0ULL;
  };
  std::ofstream("/proc/self/clear_refs") << 5;
  const auto before = kilobytes("VmRSS:");
  work();
  return (kilobytes("VmHWM:") - before) * 1024;
}

/// The client in the development environment against the local web service, over TLS; "staging" is
/// the same service without it.
class ServerTransfersTests : public ::testing::Test {
 protected:
  using Method = OmbrixServerAPI::HTTPMethod;

  ServerTransfersTests() {
    OmbrixServerAPI::change(APIEndpoint::development);
    server.route("*", "/taken", [this](const devserver::Request& request) {
      bodies.add(request.body);
      return Response::text("thanks");
    });
    server.route("*", "/moved", [](const auto&) {
      return Response{.status = 307, .headers = {{"Location", "/taken"}}};
    });
  }

  static ServerConfiguration configurationFor(const testing::TestServer& tls,
                                              const testing::TestServer& plain) {
    auto configuration = ServerConfiguration::defaults();
    configuration.development = *platform::URL::parse(tls.baseURL());
    configuration.staging = *platform::URL::parse(plain.baseURL());
    return configuration;
  }

  OmbrixServerAPI& client() { return api_.client(); }
  /// What the server was sent last on a path.
  std::string lastHeader(std::string_view path, std::string_view name) const {
    const auto requests = server.requests(path);
    if (requests.empty()) return "(no request)";
    const auto* value = requests.back()->headers.find(name);
    return value ? *value : "(none)";
  }

  testing::EventLog bodies;
  testing::ScopedDir dir;
  testing::RecordingLog log;
  testing::ScopedDirectories directories;
  testing::TestServer server;
  testing::TestServer plainServer{testing::TestServer::Wire::plain};

 private:
  testing::ScopedServerAPI api_{configurationFor(server, plainServer)};
};

// Catches a file that does not arrive whole, also where a redirect wants it again, that is sent
// without the token, or whose progress goes wrong.
TEST_F(ServerTransfersTests, FilesGoUp) {
  client().setJwtToken("ours");
  for (const std::size_t size : {0u, 5u, 3'000'000u}) {
    for (const char* path : {"taken", "moved"}) {
      const std::string contents = pattern(size);
      std::vector<std::int64_t> sent;
      RequestOptions options{.headers = {{"Content-Type", "text/csv"}, {"Authorization", "mine"}},
                             .progress = [&](const HTTPProgress& progress) {
                               sent.push_back(progress.bytesSent);
                               EXPECT_EQ(progress.bytesExpectedToSend, size);
                             }};
      const auto answer =
          client().upload(path, dir.write("track", contents), Method::POST, options).get();
      EXPECT_EQ(textOf(answer.data), "thanks");
      EXPECT_EQ(bodies.take(), std::vector{contents}) << size << path;
      EXPECT_EQ(lastHeader("/taken", "Authorization"), "Bearer ours");
      EXPECT_EQ(lastHeader("/taken", "Content-Type"), "text/csv");
      EXPECT_EQ(answer.metrics.bytesSent, size);
      if (size > 5) {
        EXPECT_EQ(sent.back(), size);
      }
    }
  }
}

// Catches a publisher's upload whose progress or task is not that of the upload.
TEST_F(ServerTransfersTests, UploadPublishersHandOverProgressAndTask) {
  platform::URLRequest request(*platform::URL::parse(server.url("/taken")));
  request.httpMethod = "PUT";
  const std::string contents = pattern(1'000'000);
  const auto sent = std::make_shared<std::atomic<std::int64_t>>(0);
  const auto plain =
      uploadTaskPublisher(client().session(), request, platform::dataFrom(contents))
          .onProgress([sent](const HTTPProgress& progress) { *sent = progress.bytesSent; });
  EXPECT_EQ(textOf(asAsync(plain).get().data), "thanks");
  EXPECT_EQ(*sent, 1'000'000);
  EXPECT_EQ(bodies.take(), std::vector{contents});
  const auto cancelled = plain.onTask([](const auto& task) { task->cancel(); });
  try {
    asAsync(cancelled).get();
    ADD_FAILURE() << "it went on";
  } catch (const URLError& error) {
    EXPECT_EQ(error.code(), URLError::Code::cancelled);
  }
}

/// A body that somebody makes up as it goes.
struct MadeUp final : platform::HTTPBodySource {
  std::string text;
  std::optional<std::int64_t> stated;
  std::expected<std::optional<std::int64_t>, URLError> length() const override { return stated; }
  std::expected<std::size_t, URLError> read(std::int64_t offset,
                                            std::span<std::byte> buffer) const override {
    const auto rest = platform::bytesOf(text).subspan(static_cast<std::size_t>(offset));
    const auto count = std::min(rest.size(), buffer.size());
    std::ranges::copy(rest.first(count), buffer.begin());
    return count;
  }
};

// Catches a body of unknown length that is cut, and one that is shorter than it says that hangs.
TEST_F(ServerTransfersTests, StreamsGoUp) {
  const std::tuple<std::optional<std::int64_t>, const char*, bool> rows[] = {
      {std::nullopt, "taken", true},
      {std::nullopt, "moved", true},
      {100'000, "taken", true},
      {100'001, "taken", false},
  };
  for (const auto& [stated, path, isWhole] : rows) {
    const auto source = std::make_shared<MadeUp>();
    source->text = pattern(100'000);
    source->stated = stated;
    const RequestOptions options{.body = source};
    const auto answer = outcome(client().send(path, Method::PUT, options));
    ASSERT_EQ(answer.has_value(), isWhole);
    EXPECT_EQ(bodies.take(), isWhole ? std::vector{source->text} : std::vector<std::string>());
    if (!isWhole) {
      EXPECT_EQ(answer.error().underlyingError()->code(),
                URLError::Code::requestBodyStreamExhausted);
    }
  }
}

// Catches a wait for the other end of a pipe, refusals without a reason, a file that is read into
// memory, and an answer to an upload that says nothing of the login.
TEST_F(ServerTransfersTests, UploadsThatFailSayWhy) {
  const auto pipe = dir.path() / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  const std::tuple<std::filesystem::path, URLError::Code, std::string> rows[] = {
      {pipe, URLError::Code::unknown, "is no regular file"},
      {dir.path(), URLError::Code::fileIsDirectory, "directory"},
      {dir.path() / "none", URLError::Code::fileDoesNotExist, "No such file"},
  };
  for (const auto& [file, code, sentence] : rows) {
    const auto refused = outcome(client().upload("taken", file));
    ASSERT_FALSE(refused);
    ASSERT_NE(refused.error().underlyingError(), nullptr);
    EXPECT_EQ(refused.error().underlyingError()->code(), code);
    EXPECT_THAT(refused.error().underlyingError()->what(), ::testing::HasSubstr(sentence));
  }
  EXPECT_EQ(server.requestCount("/taken"), 0u);

  const auto huge = dir.write("huge", "");
  std::filesystem::resize_file(huge, 20'000'000'000);
  std::optional<OmbrixServerAPI::Result<HTTPAnswer>> result;
  const auto peak = peakOf([&] { result = outcome(client().upload("taken", huge)); });
  ASSERT_FALSE(*result);
  if (!testing::kUnderSanitizer) {
    EXPECT_LT(peak, 64u << 20);
  }

  EXPECT_EQ(outcome(client().upload("private/echo", dir.write("track", "x"))).error(),
            HTTPError::unauthorizedError());
  EXPECT_TRUE(client().loginError());
}

/// Answers with a file as it is in the version of the moment, or its rest, or breaks off.
struct Served {
  std::string contents = pattern(3'000'000), tag = "\"1\"";
  bool breaksOff = false;

  Response operator()(const devserver::Request& request) const {
    const auto* range = request.headers.find("Range");
    if (range && request.headers.value("If-Range") == tag) {
      const auto from = std::stoull(range->substr(std::string("bytes=").size()));
      const auto size = std::to_string(contents.size());
      if (from >= contents.size()) {
        return {.status = 416, .headers = {{"Content-Range", "bytes */" + size}}};
      }
      const auto part =
          "bytes " + std::to_string(from) + "-" + std::to_string(contents.size() - 1) + "/" + size;
      return {.status = 206,
              .headers = {{"ETag", tag}, {"Content-Range", part}},
              .body = contents.substr(from)};
    }
    Response whole{.headers = {{"ETag", tag}}, .body = contents};
    if (!breaksOff) return whole;
    return Response::following({devserver::Send{whole.bytes().substr(0, contents.size() / 2)},
                                devserver::Hold{"broken"}, devserver::End::reset});
  }
};

// Catches a download that is there before it is whole, begins anew, goes on with a part of
// something else, or has its parts left behind.
TEST_F(ServerTransfersTests, DownloadsGoOnWhereTheyBroke) {
  const auto file = dir.path() / "track";
  const auto part = dir.path() / "track.part";
  const auto served = std::make_shared<Served>();
  server.route("GET", "/file", [served](const auto& request) { return (*served)(request); });
  const struct {
    std::string tag;
    const char* range;  // the beginning of what is asked for
    int code;
  } rows[] = {{"\"1\"", "bytes=", 206}, {"\"2\"", "bytes=", 200}};
  for (const auto& row : rows) {
    served->breaksOff = true;
    const auto broken = client().download("file", file).start();
    ASSERT_TRUE(testing::eventually([&] {
      std::error_code error;
      return std::filesystem::file_size(part, error) > 0 && !error;
    }));
    server.openGate("broken");
    EXPECT_THROW(broken.get(), HTTPError);
    server.shutGate("broken");
    EXPECT_FALSE(std::filesystem::exists(file));
    served->breaksOff = false;
    served->tag = row.tag;
    std::int64_t received = 0;
    RequestOptions options{.progress = [&](const auto& told) { received = told.bytesReceived; }};
    const auto answer = client().download("file", file, options).get();
    EXPECT_EQ(answer.code, row.code);
    EXPECT_THAT(lastHeader("/file", "Range"), ::testing::StartsWith(row.range));
    EXPECT_EQ(dir.read("track"), served->contents);
    EXPECT_EQ(received, answer.metrics.bytesReceived);
    std::filesystem::remove(file);
    EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
    served->tag = "\"1\"";
  }
  EXPECT_EQ(outcome(client().download("status/404?body=%22gone%22", file)).error(),
            HTTPError::resourceNotFoundError());
  EXPECT_FALSE(std::filesystem::exists(part));
}

// Catches a part that is told as the whole, a file that an answer without it has emptied, one of
// two resources or of two downloads at once, and what is whole already loaded again.
TEST_F(ServerTransfersTests, OnlyAWholeFileTakesItsPlace) {
  const auto file = dir.path() / "track";
  const std::string contents = pattern(1000);
  const auto answered = std::make_shared<testing::EventLog>();
  server.route("GET", "/file", [=](const devserver::Request& request) {
    const auto* range = request.headers.find("Range");
    answered->add(range ? *range : "all");
    if (!range) {
      return Response::following(
          {devserver::Send{"HTTP/1.1 200 OK\r\nETag: \"1\"\r\nContent-Length: 1000\r\n\r\n" +
                           contents.substr(0, 100)},
           devserver::Hold{"broken"}, devserver::End::reset});
    }
    const auto from = std::stoull(range->substr(6));
    if (from == 1000)
      return Response{.status = 416, .headers = {{"Content-Range", "bytes */1000"}}};
    const auto end = from == 100 ? 200U : 1000U;  // less than was asked for, at first
    return Response{.status = 206,
                    .headers = {{"Content-Range", "bytes " + std::to_string(from) + "-" +
                                                      std::to_string(end - 1) + "/1000"}},
                    .body = contents.substr(from, end - from)};
  });
  server.route("GET", "/same", [](const auto&) { return Response{.status = 304}; });
  const auto partOf = [&](std::uintmax_t bytes) {
    std::error_code error;
    return std::filesystem::file_size(dir.path() / "track.part", error) == bytes && !error;
  };
  const auto breakOff = [&] {
    const auto broken = client().download("file", file).start();
    EXPECT_TRUE(testing::eventually([&] { return partOf(100); }));
    EXPECT_FALSE(outcome(client().download("other?bytes=9", file))) << "while another writes it";
    server.openGate("broken");
    EXPECT_THROW(broken.get(), HTTPError);
    server.shutGate("broken");
  };
  server.route("GET", "/other", [](const auto&) { return Response::text("something"); });
  breakOff();
  EXPECT_EQ(client().download("other", file).get().code, 200) << "no part of this one";
  EXPECT_EQ(dir.read("track"), "something");
  EXPECT_EQ(client().download("same", file).get().code, 304);
  EXPECT_EQ(dir.read("track"), "something");

  breakOff();
  EXPECT_FALSE(outcome(client().download("file", file)));
  EXPECT_TRUE(partOf(200));
  EXPECT_EQ(dir.read("track"), "something");
  EXPECT_EQ(client().download("file", file).get().code, 206);
  EXPECT_EQ(dir.read("track"), contents);
  EXPECT_EQ(answered->take(), (std::vector<std::string>{"all", "all", "bytes=100-", "bytes=200-"}));

  breakOff();
  dir.write("track.part", contents);
  EXPECT_EQ(client().download("file", file).get().code, 416);
  EXPECT_EQ(dir.read("track"), contents);
  std::filesystem::remove(file);
  EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
}

/// Retries as soon as it may.
RequestOptions persistent() {
  RetryPolicy policy;
  policy.random = [] { return 0.0; };
  return {.retry = policy};
}

// Catches a retry that loads again what is there, mixes up what it has with what comes, tells lines
// twice, or sends another body than before.
TEST_F(ServerTransfersTests, RetriesGoOnWithWhatIsThere) {
  const auto attempts = std::make_shared<std::atomic<int>>(0);
  const auto served = std::make_shared<const Served>();
  server.route("GET", "/file", [=](const auto& request) {
    auto now = *served;
    now.breaksOff = ++*attempts == 1;
    return now(request);
  });
  const auto download = client().download("file", dir.path() / "track", persistent()).start();
  ASSERT_TRUE(testing::eventually([&] {
    std::error_code error;
    return std::filesystem::file_size(dir.path() / "track.part", error) > 0 && !error;
  }));
  server.openGate("broken");
  const auto answer = download.get();
  EXPECT_EQ(answer.code, 206);
  EXPECT_EQ(answer.metrics.attempt, 2);
  EXPECT_EQ(dir.read("track"), served->contents);

  *attempts = 0;
  server.route("GET", "/lines", [=](const auto&) {
    if (++*attempts == 1) return Response::message(503, "later");
    return Response::following(
        {devserver::Send{"HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\none\n"},
         devserver::Hold{"line"}, devserver::End::close});
  });
  auto lines = client().lines("lines", persistent());
  EXPECT_EQ(lines.next().get(), "one");
  server.openGate("line");  // what breaks off at once may be lost
  EXPECT_FALSE(outcome(lines.next()));
  EXPECT_EQ(*attempts, 2);

  *attempts = 0;
  server.route("PUT", "/busy", [this, attempts](const devserver::Request& request) {
    bodies.add(request.body);
    return ++*attempts == 1 ? Response::message(503, "later") : Response::text("thanks");
  });
  const std::string contents = pattern(300'000);
  EXPECT_EQ(
      client().upload("busy", dir.write("up", contents), Method::PUT, persistent()).get().code,
      200);
  EXPECT_EQ(bodies.take(), (std::vector{contents, contents}));
}

// Catches forms and parts that a server reads otherwise than they were meant: names that end early,
// a boundary within a part, a file that is missing, or sent but once where a redirect wants it
// again.
TEST_F(ServerTransfersTests, FormsAndPartsGoUp) {
  const auto form = HTTPContent::form({{"a b", "ä&="}, {"", "*-._~"}, {"c", ""}});
  EXPECT_EQ(client().post("taken", form).get().code, 200);
  EXPECT_EQ(bodies.take(), std::vector<std::string>{"a+b=%C3%A4%26%3D&=*-._%7E&c="});
  EXPECT_EQ(lastHeader("/taken", "Content-Type"), "application/x-www-form-urlencoded");

  const std::string contents = pattern(3'000'000);
  const auto file = dir.write("track.csv", contents);
  auto next = [n = 0]() mutable { return "line" + std::to_string(++n); };
  const auto parts = HTTPContent::multipart(
      {HTTPPart::field("day", "is line1 free?"),
       HTTPPart::file("the \"track\"\r\n", file, "text/csv"),
       HTTPPart::data("line2", platform::SharedData(platform::dataFrom("")), "empty")},
      next);
  const std::string body =
      "--line3\r\nContent-Disposition: form-data; name=\"day\"\r\n\r\nis line1 free?"
      "\r\n--line3\r\nContent-Disposition: form-data; name=\"the %22track%22%0D%0A\"; "
      "filename=\"track.csv\"\r\nContent-Type: text/csv\r\n\r\n" +
      contents +
      "\r\n--line3\r\nContent-Disposition: form-data; name=\"line2\"; filename=\"empty\"\r\n"
      "Content-Type: application/octet-stream\r\n\r\n"
      "\r\n--line3--\r\n";
  for (const char* path : {"taken", "moved"}) {
    EXPECT_EQ(client().post(path, parts).get().code, 200);
    EXPECT_EQ(bodies.take(), std::vector{body});
    EXPECT_EQ(lastHeader("/taken", "Content-Type"), "multipart/form-data; boundary=line3");
  }
  const auto missing = HTTPContent::multipart({HTTPPart::file("track", dir.path() / "none")});
  const auto refused = outcome(client().post("taken", missing));
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.error().underlyingError()->code(), URLError::Code::fileDoesNotExist);
}

std::vector<std::string> linesOf(HTTPLines lines) {
  std::vector<std::string> taken;
  while (auto line = lines.next().get()) taken.push_back(*line);
  return taken;
}

// Catches lines that are cut or joined, and failures that look like an end.
TEST_F(ServerTransfersTests, LinesAsTheyCome) {
  const std::pair<std::string, std::vector<std::string>> rows[] = {
      {"", {}},
      {"one", {"one"}},
      {"one\ntwo\n", {"one", "two"}},
      {"one\r\n\r\nthree\rx", {"one", "", "three\rx"}},
  };
  for (const auto& [body, lines] : rows) {
    server.route("GET", "/lines", [body = body](const auto&) { return Response::text(body); });
    EXPECT_EQ(linesOf(client().lines("lines")), lines);
  }
  server.route("GET", "/lines",
               [](const auto&) { return Response::text("short\n" + std::string(3'000'000, 'x')); });
  auto tooLong = client().lines("lines");
  EXPECT_EQ(tooLong.next().get(), "short");
  const auto refused = outcome(tooLong.next());
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.error().underlyingError()->code(), URLError::Code::dataLengthExceedsMaximum);
  auto missing = client().lines("status/404");
  EXPECT_EQ(outcome(missing.next()).error(), HTTPError::resourceNotFoundError());
  auto invalid = client().lines("no blanks");
  EXPECT_EQ(outcome(invalid.next()).error(), HTTPError::badRequestError());
}

// Catches what is not taken piling up in memory, and a request that goes on for nobody.
TEST_F(ServerTransfersTests, LinesHoldTheServerBack) {
  plainServer.route("GET", "/endless", [](const auto&) {
    std::string lines;
    while (lines.size() < 65'536) lines += "a line of an endless answer\n";
    return Response::following(
        {devserver::Send{"HTTP/1.1 200 OK\r\n\r\n"}, devserver::Repeat{.bytes = lines}});
  });
  OmbrixServerAPI::change(APIEndpoint::staging);
  const auto peak = peakOf([&] {
    auto lines = client().lines("endless");
    for (int i = 0; i < 300'000; ++i) ASSERT_EQ(lines.next().get(), "a line of an endless answer");
  });
  if (!testing::kUnderSanitizer) {
    EXPECT_LT(peak, 48u << 20);
  }
  EXPECT_TRUE(plainServer.waitUntilIdle());

  plainServer.route("GET", "/held",
                    [](const auto&) { return testing::held("gate", Response::text("late")); });
  auto waiting = client().lines("held");
  std::latch hasBegun(1);  // a task that is cancelled before leaves the lines to other calls
  auto first = [&]() -> platform::Async<void> {
    hasBegun.count_down();
    const auto line = co_await waiting.next();
    EXPECT_EQ(line, std::nullopt);
  };
  const auto task = platform::startTask(first);
  hasBegun.wait();
  ASSERT_TRUE(plainServer.waitUntilHeld(1));
  task.cancel();
  EXPECT_THROW(task.get(), platform::CancellationError);
  EXPECT_TRUE(plainServer.waitUntilIdle());
}

// Catches a limit of the ordinary requests that cuts what may take long.
TEST_F(ServerTransfersTests, LongAnswersAreNotCutAfterHalfAMinute) {
  const auto clock = std::make_shared<testing::ManualClock>();
  const testing::ScopedService scoped(platform::services().clock,
                                      std::static_pointer_cast<platform::Clock>(clock));
  OmbrixServerAPI::change(APIEndpoint::staging);
  plainServer.route("GET", "/long", [](const auto&) {
    return Response::following({devserver::Send{"HTTP/1.1 200 OK\r\n\r\n1\n"}, devserver::Hold{"1"},
                                devserver::Send{"2\n"}, devserver::Hold{"2"},
                                devserver::Send{"3\n"}, devserver::End::close});
  });
  auto lines = client().lines("long");
  const auto file = dir.path() / "long";
  const auto download = client().download("long", file).start();
  const auto ordinary = client().get("long").start();
  EXPECT_EQ(lines.next().get(), "1");
  ASSERT_TRUE(plainServer.waitUntilHeld(3));
  clock->advance(std::chrono::seconds(20));
  plainServer.openGate("1");
  EXPECT_EQ(lines.next().get(), "2");
  clock->advance(std::chrono::seconds(20));
  EXPECT_THROW(ordinary.get(), HTTPError);
  plainServer.openGate("2");
  EXPECT_EQ(lines.next().get(), "3");
  EXPECT_EQ(lines.next().get(), std::nullopt);
  EXPECT_EQ(download.get().code, 200);
  EXPECT_EQ(dir.read("long"), "1\n2\n3\n");
}

// Catches a body that is copied on its way from hand to hand.
TEST_F(ServerTransfersTests, ABodyIsInMemoryOnce) {
  if (testing::kUnderSanitizer) GTEST_SKIP() << "memory is counted otherwise";
  constexpr std::size_t kBytes = 128u << 20;
  for (const bool isStated : {true, false}) {
    plainServer.route("GET", "/big", [isStated](const auto&) {
      const std::string piece(65'536, 'x');
      std::string head = "HTTP/1.1 200 OK\r\n";
      if (isStated) head += "Content-Length: " + std::to_string(kBytes) + "\r\n";
      return Response::following({devserver::Send{head + "\r\n"},
                                  devserver::Repeat{.bytes = piece, .count = kBytes / 65'536},
                                  devserver::End::close});
    });
    OmbrixServerAPI::change(APIEndpoint::staging);
    const auto peak = peakOf([&] {
      const auto body = resultOf(client().dataPublisher("big"));
      ASSERT_TRUE(body);
      EXPECT_EQ(body->size(), kBytes);
    });
    EXPECT_LT(peak, kBytes / 10 * 13) << isStated;
  }
}

// Catches an answer or an error that does not say what it knows, or says it in its text.
TEST_F(ServerTransfersTests, AnswersAndErrorsSayHowTheyCame) {
  using FetchType = platform::URLSessionTaskMetrics::FetchType;
  const std::string path = "cache/a?cache-control=max-age%3D60";
  EXPECT_EQ(client().get(path).get().metrics.fetchType, FetchType::networkLoad);
  const auto cached = client().get(path).get();
  EXPECT_EQ(cached.metrics.fetchType, FetchType::localCache);
  EXPECT_EQ(cached.header("cache-control"), "max-age=60");
  RequestOptions fresh{.cachePolicy = RequestOptions::CachePolicy::reloadIgnoringLocalCacheData};
  EXPECT_EQ(client().get(path, fresh).get().metrics.fetchType, FetchType::networkLoad);
  const auto moved = client().get("redirect?to=/status/201").get();
  EXPECT_EQ(moved.url()->path(), "/status/201");
  EXPECT_EQ(moved.metrics.redirectCount, 1);

  const auto refused = outcome(client().get("status/403?body=%22secret%22&header=X-Why:because"));
  ASSERT_FALSE(refused);
  const HTTPError& error = refused.error();
  EXPECT_EQ(error, HTTPError::forbidden());
  EXPECT_STREQ(error.what(), "forbidden");
  EXPECT_EQ(error.underlyingError(), nullptr);
  EXPECT_EQ(error.cause()->code, 403);
  EXPECT_EQ(textOf(error.cause()->body), "\"secret\"");
  EXPECT_EQ(error.cause()->response->valueForHTTPHeaderField("X-Why"), "because");

  const RequestOptions hasty{.totalTimeout = std::chrono::milliseconds(1)};
  const auto late = outcome(client().get("fault/stall-before-head", hasty));
  ASSERT_FALSE(late);
  EXPECT_EQ(late.error(), HTTPError::networkError());
  EXPECT_EQ(late.error().underlyingError()->code(), URLError::Code::timedOut);
}

// Catches a wait that ends before the completions were called.
TEST_F(ServerTransfersTests, WaitingForAllAnswers) {
  struct Completions {
    std::latch mayEnd{1};
    std::atomic<int> ended = 0;
  };
  const auto completions = std::make_shared<Completions>();
  for (int i = 0; i < 40; ++i) {
    client().completionWrapper(client().publisher(i % 2 == 0 ? "status/200" : "status/404"),
                               [completions](const auto&) {
                                 completions->mayEnd.wait();
                                 ++completions->ended;
                               });
  }
  const std::jthread opener([&] {
    client().waitUntilAllOperationsAreFinished();  // which does not wait for completions
    completions->mayEnd.count_down();
  });
  client().waitUntilAllAnswersAreDelivered();
  EXPECT_EQ(completions->ended, 40);
}

// Catches another server, to which a redirect led, that logs the user out or in, or ends what it
// knows nothing of; and a token that travels there.
TEST_F(ServerTransfersTests, OtherServersSayNothingOfTheLogin) {
  client().setJwtToken("ours");
  client().triggerMaintenanceMode();
  for (const int status : {200, 401, 503}) {
    server.route("*", "/away", [&](const auto&) {
      return devserver::Response{.status = 307, .headers = {{"Location", plainServer.url("/x")}}};
    });
    plainServer.route("*", "/x", [&](const auto&) {
      return devserver::Response{.status = status, .headers = {{"Authorization", "Bearer theirs"}}};
    });
    EXPECT_EQ(resultOf(client().publisher("away")).has_value(), status == 200);
    EXPECT_EQ(plainServer.requests("/x").back()->headers.find("Authorization"), nullptr);
    EXPECT_EQ(client().jwtToken(), "ours");
    EXPECT_FALSE(client().loginError());
    EXPECT_TRUE(client().serverIsInMaintenanceMode());
  }
  const auto asked = plainServer.requestCount("/x");
  const HTTPPayload body(std::map<std::string, platform::JSON>{{"a", "b"}});
  EXPECT_FALSE(resultOf(client().publisher("away", Method::POST, false, body)));
  EXPECT_EQ(plainServer.requestCount("/x"), asked);
}

}  // namespace
}  // namespace ombrix
