// Measuring a day beside a plain pass that adds up ways and rises; a day from file to summary and
// to page; a season of files through the program.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "Examples/HostApp/Days/RecordedDay.hpp"
#include "Examples/HostApp/Files/TrackFile.hpp"
#include "Examples/HostApp/Page/DayPage.hpp"
#include "OmbrixDay/Measuring/DayMeasurer.hpp"
#include "Tests/OmbrixDay/MadeUpDay.hpp"

namespace {

namespace fs = std::filesystem;
using ombrix::CLLocation;
using ombrix::hostapp::lineOf;
using ombrix::hostapp::RecordedDay;

const std::vector<CLLocation>& dayOfFixes() {
  static const std::vector<CLLocation> fixes =
      ombrix::testing::makeUpDay({.rides = 11, .riseMeters = 800, .hasHalts = true}).fixes;
  return fixes;
}

/// A folder of files that goes with the program.
class Files {
 public:
  static const Files& shared() {
    static const Files files;
    return files;
  }
  ~Files() { fs::remove_all(folder_); }

  [[nodiscard]] const std::string& day() const { return day_; }
  [[nodiscard]] fs::path folder() const { return folder_; }

 private:
  Files()
      : folder_(fs::temp_directory_path() / ("ombrix-bench-" + std::to_string(::getpid()))),
        day_(folder_ / "day.csv") {
    fs::create_directories(folder_);
    ombrix::hostapp::writeTrack(day_, dayOfFixes());
  }

  fs::path folder_;
  std::string day_;
};

RecordedDay recordedDay() {
  const std::string& file = Files::shared().day();
  RecordedDay day = ombrix::hostapp::measured(ombrix::hostapp::readTrackFile(file), file, {});
  if (day.day.totals.runs != 11) std::abort();
  return day;
}

void plainPass(benchmark::State& state) {
  const auto& fixes = dayOfFixes();
  for (auto _ : state) {
    double rise = 0;
    for (std::size_t i = 1; i < fixes.size(); ++i) {
      rise += std::abs(fixes[i].altitude - fixes[i - 1].altitude);
    }
    benchmark::DoNotOptimize(rise + ombrix::distanceAlong(fixes));
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(fixes.size()));
}

void measuredDay(benchmark::State& state) {
  const auto& fixes = dayOfFixes();
  if (ombrix::measureDay(fixes).totals.runs != 11) std::abort();
  for (auto _ : state) benchmark::DoNotOptimize(ombrix::measureDay(fixes));
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(fixes.size()));
}

void fileToSummary(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(lineOf(toJSON(recordedDay())));
}

void fileToPage(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(ombrix::hostapp::dayPage(recordedDay()));
}

/// A hundred files of a winter in one call of the program, whose path is in OMBRIX_PROGRAM.
void season(benchmark::State& state) {
  const char* program = std::getenv("OMBRIX_PROGRAM");
  if (program == nullptr) return state.SkipWithError("OMBRIX_PROGRAM is not set");
  const fs::path folder = Files::shared().folder();
  auto fixes = dayOfFixes();
  for (int day = 0; day < 100; ++day) {
    for (CLLocation& fix : fixes) fix.timestamp += std::chrono::hours(24);
    ombrix::hostapp::writeTrack(folder / ("season-" + std::to_string(day) + ".csv"), fixes);
  }
  const std::string command = "cd '" + folder.string() + "' && XDG_DATA_HOME=data '" + program +
                              "' day season-*.csv >/dev/null 2>&1";
  for (auto _ : state) {
    if (std::system(command.c_str()) != 0) return state.SkipWithError("the program failed");
  }
}

BENCHMARK(measuredDay)->Name("day/measured")->Unit(benchmark::kMicrosecond);
BENCHMARK(plainPass)->Name("day/plain-pass")->Unit(benchmark::kMicrosecond);
BENCHMARK(fileToSummary)->Name("file-to-summary/ours")->Unit(benchmark::kMillisecond);
BENCHMARK(fileToPage)->Name("file-to-page/ours")->Unit(benchmark::kMillisecond);
BENCHMARK(season)->Name("season-of-100/ours")->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
