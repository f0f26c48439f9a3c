// Track and heart-rate files that cost more than they should, read with 256 MiB of address space,
// through C++ and through C: each ends with its log line and with what could be read.

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>

#include "Faults/FaultRun.hpp"
#include "OmbrixC/Location/OmbrixHRCSV.h"
#include "OmbrixC/Location/OmbrixLocationCSV.h"
#include "OmbrixCore/Data/HRCSVParser.hpp"
#include "OmbrixCore/Data/LocationCSVParser.hpp"
#include "OmbrixDay/Formats/Track.hpp"
#include "OmbrixTesting/RecordingLog.hpp"
#include "OmbrixTesting/Sanitizers.hpp"
#include "OmbrixTesting/ScopedDir.hpp"

namespace ombrix {
namespace {

constexpr std::string_view kRow = "1700000000.5,46.5,7.25,1500,90,5,3,4\n";
constexpr std::string_view kBadRow = "Data: Error while trying to read CSV for migration, bad row";
constexpr std::string_view kBrokeOff = "Data: Error parsing CSV";

struct Hostile {
  const char* name;
  std::size_t rowsBefore;   ///< Good rows in front.
  std::string_view piece;   ///< Then this, over and over,
  std::size_t bytes;        ///< up to this many bytes in all; a hole of zeros without a piece.
  std::size_t rowsBehind;   ///< A line end and good rows at the end.
  std::size_t least, most;  ///< How many fixes are read.
  std::vector<std::string_view> errors;
};

void write(const std::filesystem::path& path, const Hostile& file) {
  std::ofstream out(path, std::ios::binary);
  for (std::size_t i = 0; i < file.rowsBefore; ++i) out << kRow;
  std::string block;
  while (!file.piece.empty() && block.size() < (1 << 20)) block += file.piece;
  for (std::size_t i = 0; !block.empty() && i < file.bytes; i += block.size()) out << block;
  out.flush();
  if (file.piece.empty())
    std::filesystem::resize_file(path, std::filesystem::file_size(path) + file.bytes);
  out.seekp(0, std::ios::end);
  if (file.rowsBehind != 0) out << '\n';
  for (std::size_t i = 0; i < file.rowsBehind; ++i) out << kRow;
}

/// How many fixes a parse of a track gives; nothing for no list.
using ReadTrack = std::optional<std::size_t> (*)(const std::filesystem::path& path);

std::optional<std::size_t> readInCPlusPlus(const std::filesystem::path& path) {
  const auto fixes = LocationCSVParser().parse(path);
  return fixes ? std::optional(fixes->size()) : std::nullopt;
}

std::optional<std::size_t> readInC(const std::filesystem::path& path) {
  auto* const parser = ombrix_LocationCSVParser_init();
  const std::string url = "file://" + path.string();
  const OmbrixLocations fixes = ombrix_LocationCSVParser_parseWithUrl_(parser, url.c_str());
  const auto count = fixes.locations ? std::optional(fixes.count) : std::nullopt;
  ombrix_Locations_release(fixes);
  ombrix_LocationCSVParser_release(parser);
  return count;
}

/// Runs in a child of little memory; tells by its status whether `works` held there.
bool holdsInLittleMemory(const std::function<bool()>& works) {
  const pid_t child = ::fork();
  if (child == 0) {
    const rlimit limit{256 << 20, 256 << 20};
    bool held = false;
    if (::setrlimit(RLIMIT_AS, &limit) == 0) {
      try {
        held = works();
      } catch (...) {
      }
    }
    ::_exit(held ? 0 : 1);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace
}  // namespace ombrix

void ombrix::faults::run(const Plan& plan, Outcomes& outcomes) {
  if (testing::kUnderSanitizer) return outcomes.skip("a sanitizer needs address space itself");
  using namespace ombrix;
  const std::size_t large = plan.rounds(40, 300) << 20;
  const std::size_t huge = plan.rounds(40, 1024) << 20;
  const Hostile files[] = {
      {"commas", 10, ",", large, 10, 20, 20, {kBadRow}},
      {"one field without an end", 10, "7", large, 10, 20, 20, {kBadRow}},
      {"zeros after a loss of power", 10, "", large, 10, 20, 20, {kBadRow}},
      {"quotes", 10, "\"\"\"", large, 10, 20, 20, {kBadRow}},
      {"fields behind the eighth", 10, "1,2,3,4,5,6,7,8,9,", large, 10, 21, 21, {}},
      {"short rows and then line ends", 17'000, "\n", huge, 10, 17'010, 17'010, {}},
      {"more rows than memory holds", 0, kRow, 150 << 20, 0, 200'000, 3'000'000, {kBrokeOff}},
  };
  const testing::ScopedDir folder;
  for (const Hostile& file : files) {
    const auto path = folder.path() / "track.csv";
    write(path, file);
    for (const auto& [read, name] :
         {std::pair<ReadTrack, const char*>{&readInCPlusPlus, "C++"}, {&readInC, "C"}}) {
      outcomes.expect(holdsInLittleMemory([&] {
                        testing::RecordingLog log;
                        const auto fixes = read(path);
                        auto errors = log.takeErrors();
                        // In C the list is copied: where memory is short, a part of it, with a line
                        // of its own.
                        if (errors.size() == 2 && errors[0] == kBrokeOff) errors.pop_back();
                        const bool isLogged = std::ranges::equal(errors, file.errors);
                        if (!fixes || *fixes < file.least || *fixes > file.most || !isLogged) {
                          std::fprintf(stderr, "%s in %s: %zu fixes, %zu lines: %s\n", file.name,
                                       name, fixes.value_or(0), errors.size(),
                                       errors.empty() ? "" : errors[0].c_str());
                          return false;
                        }
                        return true;
                      }),
                      "a track read as far as it goes", file.name);
    }
  }
  const auto path = folder.path() / "heart.csv";
  std::ofstream(path) << "1,72\n" << std::string(large, '9') << "\n2,73\n";
  outcomes.expect(holdsInLittleMemory([&] {
                    testing::RecordingLog log;
                    const auto samples = HRCSVParser().parse(path);
                    auto* const parser = ombrix_HRCSVParser_init();
                    const std::string url = "file://" + path.string();
                    const auto inC = ombrix_HRCSVParser_parseWithUrl_(parser, url.c_str());
                    return samples && samples->size() == 2 && inC.count == 2 &&
                           log.takeErrors() == std::vector(2, std::string(kBadRow));
                  }),
                  "heart rates read as far as they go");
  const auto document = [](std::string_view item) {
    std::string text = R"({"type":"FeatureCollection","features":[],"x":[)";
    while (text.size() < (24U << 20U)) text += item;
    return text + "0]}";
  };
  for (const char* item : {"0,", "{},", "[[]],", "\"\","}) {
    outcomes.expect(holdsInLittleMemory([&] {
                      const std::string text = document(item);
                      return readTrack(platform::bytesOf(text), TrackFormat::geoJSON).fixes.empty();
                    }),
                    "a document of 24 MiB is read", item);
  }
  // Damaged, so that points are looked for in it.
  for (const char* item : {"[1,1],", "[1,1]\":", "\"2026-03-01T12:00:00Z\",", "\"speeds\":[1,", "[",
                           "[1", "[1,1]", "\"2026-03-01T12:00:00Z\":"}) {
    outcomes.expect(
        holdsInLittleMemory([&] {
          const std::string text = document(item) + "x";
          try {
            return !readTrack(platform::bytesOf(text), TrackFormat::geoJSON).fault.empty();
          } catch (const TrackFormatError&) {
            return true;
          }
        }),
        "a damaged document of 24 MiB is told of", item);
  }
}
