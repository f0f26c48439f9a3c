#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <string>

#include "OmbrixTesting/Processes/ChildProcess.hpp"
#include "Tests/Tools/DevServer/RawClient.hpp"

namespace ombrix::hostapp {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

TEST(HostAppServe, SaysWhereItServesAndEndsInOrderWhenTold) {
  for (const int stop : {SIGINT, SIGTERM}) {
    testing::ChildProcess server({OMBRIX_PROGRAM, "serve", "--http"});
    const std::string url = server.readLine().value_or("");
    ASSERT_THAT(url, StartsWith("http://127.0.0.1:"));
    const auto port = static_cast<std::uint16_t>(std::stoi(url.substr(url.rfind(':') + 1)));
    const devserver::RawClient client(port);
    EXPECT_THAT(client.exchange("GET /resorts/1 HTTP/1.1\r\n\r\n", "}"), HasSubstr("Weisshorn"));

    testing::ChildProcess second({OMBRIX_PROGRAM, "serve", "--port", std::to_string(port)});
    EXPECT_EQ(second.readLine(), std::nullopt);
    EXPECT_EQ(second.wait(), 1) << "the port is taken";
    server.signal(stop);
    EXPECT_EQ(server.wait(), 0);
  }
}

}  // namespace
}  // namespace ombrix::hostapp
