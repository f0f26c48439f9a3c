#include <gmock/gmock.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

#include "OmbrixTesting/ScopedDir.hpp"
#include "OmbrixTesting/TestServer.hpp"

namespace ombrix {
namespace {

using ::testing::HasSubstr;

std::string contentsOf(const std::string& file) {
  std::ifstream stream(SOURCES_FOLDER + file);
  return {std::istreambuf_iterator<char>(stream), {}};
}

// Catches a program in the documentation that is another one, does not compile, or does not do what
// stands there.
TEST(RequestProgramsTests, WhatTheDocumentsPrintRuns) {
  const testing::ScopedDir dir;
  ::setenv("XDG_CACHE_HOME", (dir.path() / "cache").c_str(), 1);
  testing::TestServer server;
  const struct {
    std::string program, source, document;
    std::vector<std::string> says;
  } rows[] = {
      {RESORTS_PROGRAM, "Examples/Requests/resorts.cpp", "README.md", {"Weisshorn\n"}},
      {TOUR_PROGRAM,
       "Examples/Requests/tour.cpp",
       "docs/requests.md",
       {"GET https://api.ombrix.test/days: 401, attempt 1\n", "/days: 200, attempt 2\n",
        "0 days, then /resorts\n", "1000000 sent\n", "201 200 200, 300000 bytes\n",
        "line one\nline two\n", "forbidden: 403\n"}},
  };
  for (const auto& row : rows) {
    EXPECT_THAT(contentsOf(row.document), HasSubstr("```cpp\n" + contentsOf(row.source) + "```"));
    const auto line = row.program + " " + server.baseURL() + " " + dir.path().string() + " 2>&1";
    std::FILE* pipe = ::popen(line.c_str(), "r");
    std::string output;
    std::array<char, 4096> block{};
    for (std::size_t n = 0; (n = std::fread(block.data(), 1, block.size(), pipe)) > 0;) {
      output.append(block.data(), n);
    }
    EXPECT_EQ(WEXITSTATUS(::pclose(pipe)), 0) << output;
    for (const auto& text : row.says) EXPECT_THAT(output, HasSubstr(text));
  }
}

}  // namespace
}  // namespace ombrix
