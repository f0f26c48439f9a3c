// Answers that unpack to a thousand times their size and answers without end, six of each at once:
// each fails with its error, and memory stays within the session's limits.

#include <zlib.h>

#include <array>
#include <fstream>
#include <string>
#include <vector>

#include "Faults/FaultRun.hpp"
#include "OmbrixTesting/Sanitizers.hpp"
#include "OmbrixTesting/TestServer.hpp"
#include "Tests/OmbrixPlatform/Network/SessionSupport.hpp"

namespace ombrix::faults {
namespace {

constexpr std::size_t kMostResidentKilobytes = 400 * 1024;

/// A hundred megabytes of nothing, packed.
std::string bomb() {
  z_stream stream{};
  ::deflateInit2(&stream, 9, Z_DEFLATED, 31, 8, Z_DEFAULT_STRATEGY);
  std::string packed;
  std::vector<Bytef> zeros(1 << 20);
  std::vector<Bytef> piece(1 << 16);
  for (int i = 0; i <= 100; ++i) {
    stream.next_in = zeros.data();
    stream.avail_in = i < 100 ? static_cast<uInt>(zeros.size()) : 0;
    do {
      stream.next_out = piece.data();
      stream.avail_out = static_cast<uInt>(piece.size());
      ::deflate(&stream, i < 100 ? Z_NO_FLUSH : Z_FINISH);
      packed.append(reinterpret_cast<const char*>(piece.data()), piece.size() - stream.avail_out);
    } while (stream.avail_out == 0);
  }
  ::deflateEnd(&stream);
  return packed;
}

std::size_t peakResidentKilobytes() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmHWM:")) return std::stoul(line.substr(6));
  }
  return 0;
}

}  // namespace

void run(const Plan& plan, Outcomes& outcomes) {
  using Code = platform::URLError::Code;
  testing::TestServer server(testing::TestServer::Wire::plain);
  const std::string packed = bomb();
  server.route("GET", "/bomb", [&](const auto&) {
    return devserver::Response{.headers = {{"Content-Encoding", "gzip"}}, .body = packed};
  });
  server.route("GET", "/endless", [](const auto&) {
    return devserver::Response::following(
        {devserver::Send{"HTTP/1.1 200 OK\r\n\r\n"}, devserver::Repeat{std::string(65'536, 'x')}});
  });
  auto configuration = platform::URLSessionConfiguration::ephemeral();
  configuration.httpMaximumConnectionsPerHost = 16;
  const auto session = platform::URLSession::make(configuration);
  for (std::size_t round = 0; round < plan.rounds(1, 20); ++round) {
    std::vector<testing::RunningTask> bombs;
    std::vector<testing::RunningTask> endless;
    for (int i = 0; i < 6; ++i) {
      bombs.push_back(testing::start(*session, testing::requestTo(server.url("/bomb"))));
      endless.push_back(testing::start(*session, testing::requestTo(server.url("/endless"))));
    }
    auto other = testing::start(*session, testing::requestTo(server.url("/status/200?body=fine")));
    const auto fine = other.outcome().summary();
    outcomes.expect(fine == "200 fine", "another transfer went through meanwhile", fine);
    for (auto& task : bombs) {
      const auto outcome = task.outcome();
      // The endless ones may have taken all the room before it shows what it is.
      outcomes.expect(outcome.code() == Code::cannotDecodeContentData ||
                          outcome.code() == Code::dataLengthExceedsMaximum,
                      "a bomb was refused", outcome.summary().substr(0, 80));
    }
    for (auto& task : endless) {
      const auto outcome = task.outcome();
      outcomes.expect(outcome.code() == Code::dataLengthExceedsMaximum, "an endless body was cut",
                      outcome.summary().substr(0, 80));
    }
  }
  if (testing::kUnderSanitizer) return;
  const std::size_t peak = peakResidentKilobytes();
  outcomes.expect(peak <= kMostResidentKilobytes, "resident memory stayed below 400 MB",
                  std::to_string(peak) + " KiB");
}

}  // namespace ombrix::faults
