// Reading a track of eight numbers a row: ours, its portable half, and what one would write with
// the number parsers and CSV libraries at hand. Also the heap that a million rows take.

#include <benchmark/benchmark.h>
#include <csv.h>
#include <fast_float/fast_float.h>

#include <atomic>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <new>
#include <string_view>

#include "Benchmarks/TrackData.hpp"
#include "OmbrixCore/Data/LocationCSVParser.hpp"
#include "OmbrixPlatform/Csv/NumberText.hpp"

namespace {

std::atomic<std::size_t> heapBytes{0};
std::atomic<std::size_t> heapPeakBytes{0};

}  // namespace

// Counts what is allocated, to find the peak of a parse.
void* operator new(std::size_t size) {
  auto* const block = static_cast<std::size_t*>(std::malloc(size + 16));
  if (block == nullptr) throw std::bad_alloc();
  *block = size;
  const std::size_t now = heapBytes += size;
  if (now > heapPeakBytes) heapPeakBytes = now;
  return block + 2;
}

void operator delete(void* pointer) noexcept {
  if (pointer == nullptr) return;
  auto* const block = static_cast<std::size_t*>(pointer) - 2;
  heapBytes -= *block;
  std::free(block);
}

void operator delete(void* pointer, std::size_t) noexcept { operator delete(pointer); }

namespace {

using namespace ombrix;
using bench::Columns;

constexpr std::size_t kRows = 20'000;

const std::string& text(bool anyDecimals) {
  static const std::string texts[2] = {bench::makeText(bench::makeTrack(kRows), false),
                                       bench::makeText(bench::makeTrack(kRows), true)};
  return texts[anyDecimals];
}

std::vector<CLLocation> ours(const std::string& track) {
  return LocationCSVParser().parse(std::string_view(track)).value();
}

std::vector<CLLocation> portable(const std::string& track) {
  std::vector<CLLocation> fixes;
  fixes.reserve(kRows);
  platform::CSVReader reader(track, {.usesWideInstructions = false});
  Columns columns;
  while (true) {
    if (!reader.nextNumbers(columns)) {
      const auto row = reader.next();
      if (!row) return fixes;
      for (std::size_t i = 0; i < 8; ++i) columns[i] = *platform::doubleFromText((*row)[i]);
    }
    fixes.push_back(bench::locationFrom(columns));
  }
}

/// The loop that one writes by hand, which knows no quotes.
template <class FromChars>
std::vector<CLLocation> byHand(const std::string& track, FromChars fromChars) {
  std::vector<CLLocation> fixes;
  fixes.reserve(kRows);
  const char* position = track.data();
  const char* const end = position + track.size();
  Columns columns;
  while (position < end) {
    for (double& column : columns) {
      const auto [behind, error] = fromChars(position, end, column);
      if (error != std::errc{} || (*behind != ',' && *behind != '\n')) std::abort();
      position = behind + 1;
    }
    fixes.push_back(bench::locationFrom(columns));
  }
  return fixes;
}

std::vector<CLLocation> fromChars(const std::string& track) {
  return byHand(track, [](const char* begin, const char* end, double& number) {
    return std::from_chars(begin, end, number);
  });
}

std::vector<CLLocation> fastFloat(const std::string& track) {
  return byHand(track, [](const char* begin, const char* end, double& number) {
    return fast_float::from_chars(begin, end, number);
  });
}

std::vector<CLLocation> libcsv(const std::string& track) {
  struct Progress {
    std::vector<CLLocation> fixes;
    Columns columns{};
    std::size_t column = 0;
  } progress;
  progress.fixes.reserve(kRows);
  csv_parser parser;
  csv_init(&parser, CSV_APPEND_NULL);
  const auto onField = [](void* field, std::size_t, void* data) {
    auto& to = *static_cast<Progress*>(data);
    to.columns[to.column++] = std::strtod(static_cast<const char*>(field), nullptr);
  };
  const auto onRow = [](int, void* data) {
    auto& to = *static_cast<Progress*>(data);
    to.fixes.push_back(bench::locationFrom(to.columns));
    to.column = 0;
  };
  csv_parse(&parser, track.data(), track.size(), onField, onRow, &progress);
  csv_fini(&parser, onField, onRow, &progress);
  csv_free(&parser);
  return std::move(progress.fixes);
}

using Read = std::vector<CLLocation> (*)(const std::string&);

/// Stops the benchmark when a contender does not give every number to the last bit.
void requireAgreement(Read read, const std::string& track) {
  const auto fixes = read(track);
  const auto expected = fromChars(track);
  if (fixes.size() != expected.size() ||
      std::memcmp(fixes.data(), expected.data(), fixes.size() * sizeof(CLLocation)) != 0) {
    std::fputs("the readers disagree\n", stderr);
    std::abort();
  }
}

void read(benchmark::State& state, Read contender, bool anyDecimals) {
  const std::string& track = text(anyDecimals);
  requireAgreement(contender, track);
  for (auto _ : state) benchmark::DoNotOptimize(contender(track));
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kRows));
}

void writersShape(benchmark::State& state, Read contender) { read(state, contender, false); }
void anyDecimals(benchmark::State& state, Read contender) { read(state, contender, true); }

/// A million rows from a file, with the heap at its peak in parts of the resulting list.
void file(benchmark::State& state, bool any) {
  constexpr std::size_t kFileRows = 1'000'000;
  const auto path = std::filesystem::temp_directory_path() / "ombrix-benchmark-track.csv";
  std::ofstream(path, std::ios::binary) << bench::makeText(bench::makeTrack(kFileRows), any);
  const auto url = platform::URL::fileURL(path.string());
  double heap = 0;
  for (auto _ : state) {
    const std::size_t before = heapBytes;
    heapPeakBytes = before;
    const auto fixes = LocationCSVParser().parse(url).value();
    if (fixes.size() != kFileRows) std::abort();
    heap = static_cast<double>(heapPeakBytes - before) /
           static_cast<double>(kFileRows * sizeof(CLLocation));
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kFileRows));
  state.counters["heap"] = heap;
  std::filesystem::remove(path);
}

BENCHMARK_CAPTURE(writersShape, ours, &ours);
BENCHMARK_CAPTURE(writersShape, portable, &portable);
BENCHMARK_CAPTURE(writersShape, from_chars, &fromChars);
BENCHMARK_CAPTURE(writersShape, fast_float, &fastFloat);
BENCHMARK_CAPTURE(writersShape, libcsv_strtod, &libcsv);
BENCHMARK_CAPTURE(anyDecimals, ours, &ours);
BENCHMARK_CAPTURE(anyDecimals, portable, &portable);
BENCHMARK_CAPTURE(anyDecimals, from_chars, &fromChars);
BENCHMARK_CAPTURE(anyDecimals, fast_float, &fastFloat);
BENCHMARK_CAPTURE(anyDecimals, libcsv_strtod, &libcsv);
BENCHMARK_CAPTURE(file, ours, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(file, oursAnyDecimals, true)->Unit(benchmark::kMillisecond);

}  // namespace
