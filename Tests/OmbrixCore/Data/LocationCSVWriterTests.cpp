#include "OmbrixCore/Data/LocationCSVWriter.hpp"

#include <gtest/gtest.h>

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "OmbrixCore/Data/LocationCSVParser.hpp"
#include "OmbrixTesting/Processes/SmallDisk.hpp"
#include "OmbrixTesting/RecordingLog.hpp"
#include "OmbrixTesting/ScopedDir.hpp"

namespace {

/// What `write` does instead while it is set; gives how many bytes to write, or -1 for a full disk.
std::function<long(std::size_t)>* writing = nullptr;

}  // namespace

extern "C" ssize_t write(int file, const void* bytes, std::size_t count) {
  long part = static_cast<long>(count);
  if (writing != nullptr) {
    // What it does itself is written as ever.
    auto* const asked = std::exchange(writing, nullptr);
    part = (*asked)(count);
    writing = asked;
  }
  if (part < 0) return errno = ENOSPC, -1;
  return ::syscall(SYS_write, file, bytes, part);
}

namespace ombrix {
namespace {

using platform::URL;
using testing::ScopedDir;

static_assert(!std::is_default_constructible_v<LocationCSVWriter>);

CLLocation exampleFix() {
  CLLocation fix;
  fix.coordinate = {46.123456, -7.5};
  fix.altitude = 1500.25;
  fix.course = -1;
  fix.speed = 5.0625;
  fix.verticalAccuracy = 5.06;
  fix.horizontalAccuracy = 10.99;
  fix.timestamp = platform::dateSince1970(1700000000.1234569);
  return fix;
}

constexpr std::string_view kExampleRow =
    "1700000000.123456,46.123456,-7.500000,1500.250000,-1.0,5.062500,5.0,10.9\n";

// Catches a missing or a needless line break between what a file holds and the first new fix, an
// end judged without the rest of the file, a scalar cut at a block's border, and a file that is
// emptied.
TEST(LocationCSVWriterTests, AppendsOnALineOfItsOwn) {
  const std::string block(256 * 1024 - 1, 'a');
  const std::string whole = block + "😀b", cut = block + "\xF0\x9F\x98 b";
  const struct {
    std::string_view before, between;
  } cases[] = {
      {whole, "\n"},         {cut, ""},         {"\xED\xA0\x80x", ""}, {"\xC0\x80x", ""},
      {"\x80\x80", ""},      {"", ""},          {"1,2\n", ""},         {"1,2\r\n", ""},
      {"1,2\r", ""},         {"1,2\v", ""},     {"1,2\f", ""},         {"1,2\u0085", ""},
      {"1,2\u2028", ""},     {"1,2\u2029", ""}, {"1,2", "\n"},         {"1,2é", "\n"},
      {"1,2\n\u0301", "\n"}, {"1,2\n\"", "\n"}, {"\xFF\n1,2", ""},     {"1,2\xE2\x80", ""},
      {"\u2028 1", "\n"},
  };
  const ScopedDir folder;
  for (const auto& [before, between] : cases) {
    const URL url = URL::fileURL(folder.write("track.csv", before).string());
    LocationCSVWriter writer(url);
    EXPECT_EQ(folder.read("track.csv"), std::string(before) + std::string(between)) << before;
    writer.add(exampleFix());
    EXPECT_EQ(folder.read("track.csv"),
              std::string(before) + std::string(between) + std::string(kExampleRow))
        << before;
  }
  LocationCSVWriter(URL::fileURL((folder.path() / "new.csv").string())).add(exampleFix());
  EXPECT_EQ(folder.read("new.csv"), kExampleRow);
}

// Catches a value without a text that stops the row, or leaves an empty field that would be read.
TEST(LocationCSVWriterTests, LeavesOutFieldsWithoutText) {
  const std::shared_ptr stream = platform::OutputStream::toMemory();
  LocationCSVWriter writer(stream);
  CLLocation fix = exampleFix();
  fix.speed = std::numeric_limits<double>::quiet_NaN();
  fix.timestamp = platform::dateSince1970(std::numeric_limits<double>::infinity());
  writer.add(fix);
  const std::string text(platform::textOf(stream->data().value()));
  EXPECT_EQ(text, "46.123456,-7.500000,1500.250000,-1.0,5.0,10.9\n");
  testing::RecordingLog log;
  EXPECT_EQ(LocationCSVParser().parse(std::string_view(text)).value().size(), 0U);
  EXPECT_EQ(log.takeErrors().size(), 1U);
}

// Catches a writer that is dead after a full disk, a torn row that stays in the file and reads as a
// whole one with another number, and rows lost though they were written.
TEST(LocationCSVWriterTests, GoesOnAfterAFullDisk) {
  const testing::SmallDisk disk(256 * 1024);
  if (!disk.isMounted()) GTEST_SKIP() << "needs the right to mount";
  const auto& folder = disk.folder();
  const std::string path = (folder.path() / "track.csv").string();
  const std::size_t page = 4096;
  const std::string first(page - kExampleRow.size() - 2,
                          'x');  // room for one row to the page's end
  folder.write("track.csv", first + "\n");
  LocationCSVWriter writer(URL::fileURL(path, false));
  disk.fillUp(0);
  EXPECT_THROW(writer.add(std::vector(3, exampleFix())), platform::CSVError);
  EXPECT_EQ(writer.fixesWritten(), 1U);
  EXPECT_EQ(folder.read("track.csv"), first + "\n" + std::string(kExampleRow));
  EXPECT_THROW(writer.add(exampleFix()), platform::CSVError);

  disk.fillUp(page);
  writer.add(std::vector(2, exampleFix()));
  writer.sync();
  std::string expected = first + "\n";
  for (int i = 0; i < 3; ++i) expected += kExampleRow;
  EXPECT_EQ(folder.read("track.csv"), expected);
  EXPECT_EQ(writer.fixesWritten(), 3U);
}

// Catches a torn row that is cut off together with what another process appended meanwhile: behind
// it, or between two pieces of it.
TEST(LocationCSVWriterTests, LeavesTheRowsOfAnotherAppender) {
  const std::string theirs = "theirs\n";
  const std::string row{kExampleRow};
  const struct {
    std::vector<long> parts;   // what the disk takes, piece by piece
    std::size_t appendBefore;  // the other process appends before this piece
    std::string expected;      // and the next fix behind it
  } cases[] = {
      {{40, -1}, 9, row},
      {{40, 7, -1}, 9, row},
      {{40, -1}, 1, row.substr(0, 40) + theirs + "?\n" + row},
      {{40, 7, -1}, 2, row.substr(0, 47) + theirs + "?\n" + row},
      {{40, 7, -1}, 1, row.substr(0, 40) + theirs + row.substr(40, 7) + "?\n" + row},
      {{40, 7, 3, -1}, 1, row.substr(0, 40) + theirs + row.substr(40, 10) + "?\n" + row},
  };
  for (const auto& [parts, appendBefore, expected] : cases) {
    const ScopedDir folder;
    const std::string path = (folder.path() / "track.csv").string();
    LocationCSVWriter writer(URL::fileURL(path, false));
    std::size_t piece = 0;
    std::function<long(std::size_t)> inPieces = [&](std::size_t) {
      if (piece == appendBefore) std::ofstream(path, std::ios::app) << theirs;
      return parts.at(piece++);
    };
    writing = &inPieces;
    EXPECT_THROW(writer.add(exampleFix()), platform::CSVError);
    writing = nullptr;
    EXPECT_EQ(writer.fixesWritten(), 0U);
    writer.add(exampleFix());
    EXPECT_EQ(folder.read("track.csv"), expected);
    EXPECT_EQ(writer.fixesWritten(), 1U);
  }
}

// Catches a source of failure that stops the program or is swallowed, and a URL that is no file's.
TEST(LocationCSVWriterTests, TellsOfFailures) {
  const ScopedDir folder;
  EXPECT_THROW(LocationCSVWriter(URL::fileURL(folder.path().string(), true)), platform::CSVError);
  EXPECT_THROW(LocationCSVWriter(URL::fileURL((folder.path() / "no" / "track.csv").string())),
               platform::CSVError);
  EXPECT_THROW(LocationCSVWriter(platform::OutputStream::toMemory()).sync(), platform::CSVError);
  EXPECT_DEATH(LocationCSVWriter(URL::parse("https://ombrix.example/track.csv").value()),
               "No output stream");
}

// Catches numbers that drift when a track is read and written again: coordinates at the six
// decimals, courses at one, times in milliseconds, exact for as often as one likes.
TEST(LocationCSVWriterTests, RewritingATrackChangesNothing) {
  std::mt19937_64 random(9);
  std::vector<CLLocation> track(20'000);
  for (CLLocation& fix : track) {
    const auto scaled = [&random](std::int64_t range, double scale) {
      return static_cast<double>(
                 static_cast<std::int64_t>(random() % static_cast<std::uint64_t>(2 * range)) -
                 range) /
             scale;
    };
    fix.coordinate = {scaled(90'000'000, 1e6), scaled(180'000'000, 1e6)};
    fix.altitude = scaled(9'000'000'000, 1e6);
    fix.course = std::abs(scaled(3600, 10));
    fix.speed = std::abs(scaled(100'000'000, 1e6));
    fix.verticalAccuracy = scaled(1000, 10);
    fix.horizontalAccuracy = scaled(1000, 10);
    fix.timestamp = platform::dateSince1970(
        static_cast<double>(1'500'000'000'000 + random() % 400'000'000'000) / 1e3);
  }
  const std::shared_ptr first = platform::OutputStream::toMemory();
  LocationCSVWriter(first).add(track);
  const auto read = LocationCSVParser().parse(first->data().value()).value();
  ASSERT_EQ(read.size(), track.size());
  for (std::size_t i = 0; i < track.size(); ++i) {
    ASSERT_EQ(read[i].coordinate.latitude, track[i].coordinate.latitude);
    ASSERT_EQ(read[i].coordinate.longitude, track[i].coordinate.longitude);
    ASSERT_EQ(read[i].altitude, track[i].altitude);
    ASSERT_EQ(read[i].course, track[i].course);
    ASSERT_EQ(read[i].timestamp, track[i].timestamp);
  }
  const std::shared_ptr second = platform::OutputStream::toMemory();
  LocationCSVWriter(second).add(read);
  EXPECT_EQ(platform::textOf(second->data().value()), platform::textOf(first->data().value()));
}

}  // namespace
}  // namespace ombrix
