#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "Examples/HostApp/Terminal/TextTable.hpp"
#include "OmbrixTesting/Processes/SmallDisk.hpp"
#include "OmbrixTesting/Sanitizers.hpp"
#include "OmbrixTesting/ScopedDir.hpp"
#include "Program.hpp"

namespace ombrix::hostapp {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

// Catches a mistake of the user that ends in silence, in several lines, or with the wrong status.
TEST(CommandTests, MistakesGiveOneClearLine) {
  const testing::ScopedDir folder;
  folder.write("day.csv", "1700000000,46.5,7.25,1500,90,5,3,4\n");
  folder.write("empty.csv", "");
  folder.write("notes.txt", "notes");
  fs::create_symlink("loop.csv", folder.path() / "loop.csv");
  ASSERT_EQ(::mkfifo((folder.path() / "pipe").c_str(), 0600), 0);
  struct Case {
    const char* arguments;
    int status;
    const char* says;
  };
  const Case cases[] = {
      {"", 2, "A subcommand is required"},
      {"dya day.csv", 2, "dya"},
      {"day day.csv --hr missing.csv", 1, "missing.csv"},
      {"day day.csv --weight -1", 2, "--weight"},
      {"geojson missing.json", 1, "missing.json"},
      {"day day.csv --geojson /nowhere/line.json", 1, "/nowhere/line.json"},
      {"format speed ''", 2, "\"\" is not a number"},
      {"format timer 1e19", 2, "from -9e+18 to 9e+18"},
      {"format speed -inf", 2, "VALUE is required, and there is no option -inf"},
      {"format speed 1 --locale klingon", 2, "is no language and region"},
      {"settings --cloud 'http://skier:pow der@h' list", 2, "--cloud: is not the URL of a server"},
      {"find abc missing.txt --most -1", 2, "\"-1\" is not a whole number"},
      {"format speed 10 --style wide", 2, "long,medium,short,value"},
      {"day", 2, "TRACK is required"},
      {"day .", 1, "."},
      {"day '\033[31mred.csv'", 1, "\xEF\xBF\xBD[31mred.csv"},
      {"day empty.csv --json", 1, "no fix in empty.csv (0 skipped)"},
      {"day day.csv --hr empty.csv", 1, "no heart rate in empty.csv"},
      {"day day.csv --html /nowhere/day.html", 1, "/nowhere/day.html"},
      {"day day.csv day.csv --html day.html", 2, "--html are for one track"},
      {"day day.csv --html ''", 2, "--html: it is empty"},
      {"day day.csv --html notes.txt", 1, "notes.txt is no page of a day"},
      {"day day.csv --geojson pipe", 1, "nobody reads the pipe"},
      {"day day.csv --geojson ./day.csv", 1, "day.csv is a recording"},
      {"convert day.csv day.fit", 2, "OUT must end in"},
      {"convert day.csv --to gpx /nowhere/day.gpx", 1, "/nowhere/day.gpx"},
      {"convert . - --to gpx", 2, "a folder's tracks go into a folder"},
      {"day - --hr -", 2, "standard input cannot be both"},
      {"sample loop.csv", 1, "loop.csv"},
      {"sample .", 1, "cannot write ."},
      {"settings get nothing", 2, "nothing"},
      {"settings set metricType furlongs", 2, "furlongs"},
      {"store purge '' --all", 2, "DIR"},
      {"store put texts 日本 value", 1, "has no character"},
      {"store list day.csv", 1, "\"day.csv\" cannot be read"},
      {"store purge .", 2, "--all"},
      {"store purge missing --all", 1, "missing"},
      {"settings companion send units true", 2, "is not one of kilometers, miles, british"},
      {"demo --out day.csv", 1, "day.csv"},
  };
  for (const Case& c : cases) {
    const Outcome outcome = run(folder, c.arguments);
    EXPECT_EQ(outcome.status, c.status) << c.arguments << "\n" << outcome.output;
    EXPECT_NE(outcome.output.find(c.says), std::string::npos) << c.arguments << outcome.output;
    EXPECT_EQ(std::count(outcome.output.begin(), outcome.output.end(), '\n'), 1)
        << c.arguments << "\n"
        << outcome.output;
  }
}

// Catches what stands at the name of an output being destroyed: a link, a pipe, a device, a mode,
// an owner, a second name, another program's file; a rewrite that changes a byte; and notices that
// get into the output.
TEST(CommandTests, WritingKeepsWhatStandsThere) {
  const testing::ScopedDir folder;
  const auto in = [&](const char* name) { return folder.path() / name; };
  ASSERT_EQ(run(folder, "sample day.csv --runs 1").status, 0);
  const std::string day = folder.read("day.csv");
  const std::string rewrite = "track rewrite day.csv ";

  folder.write("real.csv", "older");
  fs::permissions(in("real.csv"), fs::perms(0640));
  if (geteuid() == 0) {
    ASSERT_EQ(::chown(in("real.csv").c_str(), 65534, 65534), 0);
  }
  const bool hasAttributes = ::setxattr(in("real.csv").c_str(), "user.note", "!", 1, 0) == 0;
  fs::create_symlink("real.csv", in("link.csv"));
  fs::create_symlink("made.csv", in("dangling.csv"));
  folder.write("twin.csv", "older");
  fs::create_hard_link(in("twin.csv"), in("twin2.csv"));
  folder.write("real.csv.partial", "another's");
  for (const char* name : {"link.csv", "dangling.csv", "twin.csv", "day.csv"}) {
    const Outcome outcome = run(folder, rewrite + name);
    EXPECT_EQ(outcome.status, 0) << outcome.output;
  }
  EXPECT_TRUE(fs::is_symlink(in("link.csv")) && fs::is_symlink(in("dangling.csv")));
  for (const char* name : {"real.csv", "made.csv", "twin2.csv", "day.csv"}) {
    EXPECT_EQ(folder.read(name), day) << name;
  }
  struct stat real{};
  ASSERT_EQ(::stat(in("real.csv").c_str(), &real), 0);
  EXPECT_EQ(real.st_mode & 07777, 0640U);
  if (geteuid() == 0) {
    EXPECT_EQ(real.st_uid, 65534U);
  }
  EXPECT_EQ(folder.read("real.csv.partial"), "another's");
  char note = '\0';
  EXPECT_TRUE(!hasAttributes ||
              (::getxattr(in("real.csv").c_str(), "user.note", &note, 1) == 1 && note == '!'));

  for (const std::string out : {"-", "/dev/stdout", "/dev/fd/1"}) {
    EXPECT_EQ(run(folder, rewrite + out + " 2>/dev/null | cat").output, day) << out;
    folder.write("log", "before\n");
    EXPECT_EQ(run(folder, rewrite + out + " >>log").status, 0);
    EXPECT_EQ(folder.read("log").substr(0, 7 + day.size()), "before\n" + day) << out;
  }
  ASSERT_EQ(::mkfifo(in("pipe").c_str(), 0600), 0);
  const std::string pipe = in("pipe").string();
  EXPECT_EQ(run(folder, rewrite + "pipe >/dev/null & cat " + pipe + "; wait").output, day);
  EXPECT_TRUE(fs::is_fifo(in("pipe")));
  EXPECT_EQ(run(folder, rewrite + "/dev/full").status, 1);
  // Nothing is left behind.
  const auto entries = std::distance(fs::directory_iterator(folder.path()), {});
  EXPECT_EQ(entries, 10);
}

// Catches a recording that is written over: by a shell's "*.gpx", a slip of the name, a made-up
// day, a part of itself, a page; and a command that cannot be repeated.
TEST(CommandTests, NoRecordingIsWrittenOver) {
  const testing::ScopedDir folder;
  const std::string hour =
      "for i in a b; do '" OMBRIX_PROGRAM "' convert $i.csv $i.gpx && '" OMBRIX_PROGRAM
      "' convert $i.csv $i.geojson; done; cp a.csv track";
  ASSERT_EQ(run(folder, "sample a.csv --runs 2").status, 0);
  const std::string a = folder.read("a.csv");
  std::string later = a;
  for (std::size_t at = 0; at < later.size(); at = later.find('\n', at) + 1) later[at + 1] = '8';
  folder.write("b.csv", later);
  folder.write("part.csv", a.substr(0, a.rfind('\n', a.size() - 2) + 1));
  folder.write("torn.csv", a.substr(0, a.size() / 2));
  folder.write("hr.csv", "1700000000,72\n1700000001,73\n");
  std::string other = a;
  char& digit = other[other.find('.', other.find(',')) + 3];
  digit = digit == '5' ? '6' : '5';
  folder.write("other.csv", other);
  ASSERT_EQ(run(folder, "--version; " + hour).status, 0);
  std::string rich = folder.read("a.gpx");
  folder.write("rich.gpx", rich.insert(rich.find("<trkseg>"), "<name>Mine</name>"));
  std::string hut = folder.read("a.gpx");
  folder.write("hut.gpx", hut.insert(hut.find("<trk>"), "<wpt lat='1' lon='2'/>"));
  folder.write("twin.csv", "older");
  fs::create_hard_link(folder.path() / "twin.csv", folder.path() / "twin2.csv");
  const char* const files[] = {"a.csv",  "b.csv", "a.gpx",    "b.gpx",  "a.geojson",
                               "hr.csv", "track", "rich.gpx", "hut.gpx"};
  const auto all = [&] {
    std::string contents;
    for (const char* file : files) contents += folder.read(file) + "|";
    return contents;
  };
  const std::string before = all();
  const std::pair<const char*, const char*> refused[] = {
      {"convert a.gpx b.gpx", "b.gpx is a recording"},
      {"convert a.csv hr.csv", "hr.csv is a recording"},
      {"convert a.gpx b.csv --to gpx", "b.csv is a recording"},
      {"convert part.csv a.gpx", "a.gpx is a recording"},
      {"convert other.csv a.gpx", "a.gpx is a recording"},
      {"convert a.csv rich.gpx", "rich.gpx is a recording"},
      {"convert a.csv hut.gpx", "hut.gpx is a recording"},
      {"convert hut.gpx hut.gpx", "hut.gpx holds more than is written (Waypoints): choose"},
      {"sample twin.csv --hr twin2.csv", "are one file"},
      {"convert torn.csv a.gpx", "torn.csv could not be read whole: it is cut off; a.gpx is not"},
      {"track rewrite a.csv b.csv", "b.csv is a recording"},
      {"sample b.csv --runs 2", "b.csv is a recording"},
      {"sample a.gpx", "a.gpx is a recording"},
      {"sample new.csv --hr hr.csv", "hr.csv is a recording"},
      {"sample new.csv --hr ./new.csv", "are one file"},
      {"day a.csv --html track", "track is a recording"},
      {"day a.csv --geojson a.geojson", "a.geojson is a recording"},
      {"day a.csv --geojson new --html new", "are one file"}};
  for (const auto& [command, told] : refused) {
    const Outcome outcome = run(folder, command);
    EXPECT_EQ(outcome.status, 1) << command;
    EXPECT_THAT(outcome.output, HasSubstr(told)) << command;
    EXPECT_EQ(all(), before) << command;
  }
  EXPECT_FALSE(fs::exists(folder.path() / "new.csv"));
  for (const char* command :
       {"convert a.csv a.gpx", "convert a.gpx a.gpx", "track rewrite a.csv a.csv",
        "track rewrite a.csv part.csv", "sample a.csv --runs 2", "day a.csv --geojson line.geojson",
        "day b.csv --geojson line.geojson", "sample s.csv --hr r.csv", "sample s.csv --hr r.csv"}) {
    EXPECT_EQ(run(folder, command).status, 0) << command << run(folder, command).output;
  }
  // Nor does a part take the place of a day that is kept.
  for (const char* track : {"a.csv", "part.csv", "torn.csv"}) {
    folder.write("one.csv", folder.read(track));
    run(folder, "day one.csv");
  }
  EXPECT_THAT(run(folder, "days").output, HasSubstr(" 2  "));
}

// Catches a full disk, or a limit, that costs the older file, or leaves a part of the new one.
TEST(CommandTests, AFullDiskLeavesTheOlderFile) {
  const testing::SmallDisk disk(64 * 1024);
  if (!disk.isMounted()) GTEST_SKIP() << "needs the right to mount";
  const std::string older(20'000, '7');
  disk.folder().write("day.csv", older);
  for (const int names : {1, 2}) {  // The second time it is written over in place.
    const Outcome outcome = run(disk.folder(), "sample day.csv");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.output,
                AllOf(HasSubstr("cannot write day.csv: "), HasSubstr("No space left")));
    const Outcome limited = run(disk.folder(), "sample day.csv", "ulimit -f 8; ");
    EXPECT_EQ(limited.status, 1);
    EXPECT_THAT(limited.output, HasSubstr("cannot write day.csv: "));
    EXPECT_EQ(disk.folder().read("day.csv"), older);
    EXPECT_EQ(std::distance(fs::directory_iterator(disk.folder().path()), {}), names);
    if (names == 1)
      fs::create_hard_link(disk.folder().path() / "day.csv", disk.folder().path() / "b");
  }
}

// Catches damage that costs a recording more than it has to, goes unsaid, or spreads to its file.
TEST(CommandTests, DamagedTracksAreReadAsFarAsTheyGo) {
  const testing::ScopedDir folder;
  folder.write("in/cut.gpx", "");
  ASSERT_EQ(run(folder, "sample day.csv --runs 1").status, 0);
  ASSERT_EQ(run(folder, "convert day.csv in/cut.gpx").status, 0);
  std::string cut = folder.read("in/cut.gpx");
  cut.resize(cut.size() - 60);
  folder.write("in/cut.gpx", cut);
  const auto rows = std::ranges::count(folder.read("day.csv"), '\n') - 1;
  const auto told = HasSubstr("could not be read whole: line ");
  const Outcome json = run(folder, "day in/cut.gpx --json");
  EXPECT_EQ(json.status, 1);
  EXPECT_THAT(json.output, AllOf(HasSubstr(fmt::format("\"rows\":{},", rows)),
                                 HasSubstr(R"("fault":"line )"), told));
  EXPECT_THAT(run(folder, "day in/cut.gpx").output, AllOf(HasSubstr(" used, incomplete"), told));
  EXPECT_THAT(run(folder, "compare in/cut.gpx day.csv").output, told);
  for (const char* command : {"convert in/cut.gpx out.csv", "track rewrite in/cut.gpx out.csv",
                              "convert in out --to csv"}) {
    const Outcome outcome = run(folder, command);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.output, told);
  }
  EXPECT_EQ(std::ranges::count(folder.read("out.csv"), '\n'), rows);
  EXPECT_EQ(folder.read("out/cut.csv"), folder.read("out.csv"));
  EXPECT_EQ(run(folder, "convert in/cut.gpx in/cut.gpx").status, 1);
  EXPECT_EQ(folder.read("in/cut.gpx"), cut);
}

// Catches bad rows that stop the reading, or that are counted as read.
TEST(CommandTests, BadRowsAreCountedAndLeftOut) {
  const testing::ScopedDir folder;
  folder.write("day.csv",
               "1700000000,46.5,7.25,1500,90,5,3,4\n"
               "1700000001,46.5,7.25\n"
               "1700000002, 46.5,7.25,1500,90,5,3,4\n"
               "1700000002,999,7.25,1500,90,5,3,4\n1700000002,46.5,nan,1500,90,5,3,4\n"
               "1e300,46.5,7.25,1500,90,5,3,4\n1700000002,46.5,7.25,1e300,90,5,3,4\n"
               "1700000003,46.6,7.25,1510,90,7,3,4,extra\n");
  const Outcome json = run(folder, "day day.csv --json 2>/dev/null");
  EXPECT_EQ(json.status, 0);
  EXPECT_NE(json.output.find(R"("rows":6,"skipped":2,"usedForStats":2,"offGlobe":4)"),
            std::string::npos)
      << json.output;
  const Outcome text = run(folder, "day day.csv --units miles");
  EXPECT_EQ(text.status, 0);
  EXPECT_THAT(text.output, HasSubstr("6 read, 2 skipped, 2 used, 4 off the globe"));
  const Outcome both = run(folder, "day missing.csv day.csv");
  EXPECT_EQ(both.status, 1);
  EXPECT_THAT(both.output, HasSubstr("6 read, 2 skipped")) << "the one that can be read";
}

// Catches a file of little track that takes memory by its size.
TEST(CommandTests, AHugeFileIsReadInLittleMemory) {
  if (testing::kUnderSanitizer) GTEST_SKIP() << "the sanitizers need address space themselves";
  const testing::ScopedDir folder;
  const fs::path track = folder.write("day.csv", "1700000000,46.5,7.25,1500,90,5,3,4\n");
  fs::resize_file(track, std::uintmax_t{300} << 20);
  std::ofstream(track, std::ios::app) << "\n1700000001,46.5,7.25,1500,90,5,3,4\n";
  const Outcome outcome = run(folder, "day day.csv", "ulimit -v 262144; ");
  EXPECT_EQ(outcome.status, 0) << outcome.output;
  EXPECT_THAT(outcome.output, HasSubstr("2 read, 1 skipped, 2 used"));
  EXPECT_THAT(run(folder, "day day.csv --from gpx", "ulimit -v 262144; ").output,
              HasSubstr("day.csv: There is not memory enough"));
  // Nor is it replaced by what does not hold it.
  folder.write("small.csv", "1700000000,46.5,7.25,1500,90,5,3,4\n");
  fs::rename(track, folder.path() / "huge.gpx");
  std::fstream(folder.path() / "huge.gpx") << "<gpx>";
  EXPECT_THAT(run(folder, "convert small.csv huge.gpx", "ulimit -v 262144; ").output,
              HasSubstr("huge.gpx is a recording"));
}

// Catches a time of day that is not the user's: zones by name, by a POSIX rule, with and without
// summer.
TEST(CommandTests, TimesAreThoseOfTheZone) {
  const testing::ScopedDir folder;
  folder.write("winter.csv", "1707639300,46.5,7.25,1500,90,5,3,4\n");  // 08:15 UTC
  folder.write("summer.csv", "1720685700,46.5,7.25,1500,90,5,3,4\n");
  const char* const cases[][3] = {
      {"UTC", "08:15", "08:15"},
      {"Europe/Zurich", "09:15", "10:15"},
      {"CET-1CEST,M3.5.0,M10.5.0/3", "09:15", "10:15"},
      {"EST5EDT", "03:15", "04:15"},
      {"'<+0330>-3:30'", "11:45", "11:45"},
      {"Etc/GMT+3", "05:15", "05:15"},
  };
  for (const auto& [zone, winter, summer] : cases) {
    const std::string before = fmt::format("TZ={} ", zone);
    EXPECT_THAT(run(folder, "day winter.csv --locale de_DE", before).output, HasSubstr(winter))
        << zone;
    EXPECT_THAT(run(folder, "day summer.csv --locale de_DE", before).output, HasSubstr(summer))
        << zone;
  }
}

// Catches options that do not reach the formatters, style where no terminal asks for it, a ranking
// that prints the worst first, settings and texts that do not outlive the process or a purge.
TEST(CommandTests, CommandsPrintTheirResults) {
  const testing::ScopedDir folder;
  folder.write("names.txt", "Zermatt\nSt. Moritz\nMorzine\nMürren\r\n");
  struct Step {
    const char* arguments;
    int status;
    const char* output;  ///< Null for any.
  };
  const Step steps[] = {
      {"format speed 10 --units kilometers", 0, "36.0 KM/H\n"},
      {"format speed 1e-400 --units kilometers", 0, "0.0 KM/H\n"},
      {"format speed 10 --units british --style long", 0, "22.4 MILES PER HOUR\n"},
      {"format vertical 1000 --units miles --style value", 0, "3,281\n"},
      {"format distance 1500 --locale de_DE", 0, "1,5 KM\n"},
      {"format distance 1500 --locale de_DE --units miles", 0, "0,9 MI\n"},
      {"format temperature -5 --locale fr_FR --style value", 0, "-5\n"},
      {"format duration 3000 --minimum minute --units kilometers", 0, "50 MIN\n"},
      {"format duration 3000 --minimum minute --units miles", 0, "50M\n"},
      {"format timer 307", 0, "5:07\n"},
      {"find morz names.txt", 0, "   4  [Morz]ine\n   2  St. [Mor]it[z]\n"},
      {"find mur <names.txt", 0, "   3  [Mür]ren\n"},
      {"find xyz names.txt", 1, nullptr},
      {"settings get metricType", 0, "miles\n"},
      {"settings set metricType british", 0, ""},
      {"settings get metricType", 0, "british\n"},
      {"settings unset metricType", 0, ""},
      {"settings list", 0, "metricType = miles\nsyncPreferences = true\nextraLogging = false\n"},
      {"store put kept morning 'first lift'", 0, nullptr},
      {"store put kept evening tea", 0, nullptr},
      {"store get kept morning", 0, "first lift\n"},
      {"store list kept", 0, "evening\nmorning\n"},
      {"store age kept morning", 0, nullptr},
      {"store age kept noon", 1, nullptr},
      {"store purge kept morning", 0, nullptr},
      {"store get kept morning", 1, nullptr},
      {"store purge kept --all", 0, nullptr},
      {"store list kept", 0, ""},
  };
  for (const auto& [arguments, status, output] : steps) {
    const Outcome outcome = run(folder, arguments);
    EXPECT_EQ(outcome.status, status) << arguments;
    if (output != nullptr) {
      EXPECT_EQ(outcome.output, output) << arguments;
    }
  }
}

// Catches heart rates outside the day that are counted, and a weight that is taken for pounds.
TEST(CommandTests, JoinsHeartRatesToTheDay) {
  const testing::ScopedDir folder;
  folder.write("day.csv",
               "1700000000,46.5,7.25,1500,90,5,3,4\n1700003600,46.6,7.25,1510,90,7,3,4\n");
  folder.write("hr.csv", "1699999999,200\n1700000000,100\n1700001800,x\n1700003600,140\n17000");
  const Outcome json = run(folder, "day day.csv --hr hr.csv --weight 70 --json");
  EXPECT_EQ(json.status, 0);
  EXPECT_THAT(json.output,
              AllOf(HasSubstr(R"("heartRate":{"samples":2,"averageBeatsPerMinute":120,)"
                              R"("maxBeatsPerMinute":140})"),
                    HasSubstr(R"("kilocalories":485.2)"), HasSubstr("hr.csv: 2 rows")));
  const Outcome text = run(folder, "day day.csv --hr hr.csv --weight 70");
  EXPECT_THAT(text.output,
              AllOf(HasSubstr("120 BPM"), HasSubstr("140 BPM"), HasSubstr("485 KCAL")));
}

// Catches a track that another format, a pipe or a folder changes.
TEST(CommandTests, ConvertsTracks) {
  const testing::ScopedDir folder;
  ASSERT_EQ(run(folder, "sample day.csv --runs 1").status, 0);
  ASSERT_EQ(run(folder, "convert day.csv day.gpx && '" OMBRIX_PROGRAM
                        "' convert - - --to tcx <day.gpx >day.tcx && '" OMBRIX_PROGRAM
                        "' convert day.tcx back.csv")
                .status,
            0);
  const std::string day = folder.read("day.csv"), back = folder.read("back.csv");
  EXPECT_EQ(day.substr(0, day.find(',')), back.substr(0, back.find(',')));
  EXPECT_EQ(std::ranges::count(day, '\n'), std::ranges::count(back, '\n'));
  folder.write("all/bad.gpx", "<gpx><trk>");
  fs::copy_file(folder.path() / "day.tcx", folder.path() / "all/day.tcx");
  const Outcome all = run(folder, "convert all out --to geojson");
  EXPECT_EQ(all.status, 1);
  EXPECT_THAT(all.output, AllOf(HasSubstr("bad.gpx"), HasSubstr("Wrote 1 tracks to out")));
  // Two of one name, and a folder into itself: no track is written over.
  fs::copy_file(folder.path() / "day.gpx", folder.path() / "all/day.gpx");
  EXPECT_THAT(run(folder, "convert all out --to csv").output, HasSubstr("is another track"));
  const std::string own = folder.read("all/day.gpx");
  EXPECT_EQ(run(folder, "convert all all --to gpx").status, 1);
  EXPECT_EQ(folder.read("all/day.gpx"), own);
  folder.write("hr.tcx",
               "<TrainingCenterDatabase><Trackpoint><Time>2026-03-01T12:00:00Z</Time><Position>"
               "<LatitudeDegrees>1</LatitudeDegrees><LongitudeDegrees>2</LongitudeDegrees>"
               "</Position><HeartRateBpm><Value>70</Value></HeartRateBpm></Trackpoint><Trackpoint>"
               "<Time>2026-03-01T12:00:09Z</Time><AltitudeMeters>9</"
               "AltitudeMeters><HeartRateBpm><Value>71</Value></HeartRateBpm>"
               "</Trackpoint></TrainingCenterDatabase>");
  EXPECT_THAT(run(folder, "convert hr.tcx hr.csv").output,
              HasSubstr("Not kept in CSV: Heart rate (2), Altitude\n"));
  EXPECT_THAT(run(folder, "convert hr.tcx hr.gpx").output,
              HasSubstr("Not kept in GPX: Heart rate, Altitude\n"));
  EXPECT_EQ(run(folder, "convert hr.tcx hr.tcx").status, 0);  // It holds all of it.
  // What was recorded indoors has no places.
  std::string indoors = folder.read("hr.tcx");
  indoors.erase(indoors.find("<Position>"),
                indoors.find("</Position>") + 11 - indoors.find("<Position>"));
  folder.write("in.tcx", indoors);
  EXPECT_EQ(run(folder, "convert in.tcx out.tcx").status, 0);
  EXPECT_THAT(folder.read("out.tcx"), AllOf(HasSubstr("<Value>70<"), HasSubstr("<Value>71<")));
  EXPECT_THAT(run(folder, "convert in.tcx in.gpx").output, HasSubstr("and only TCX holds"));
  folder.write("none.gpx", "<gpx><trk><trkseg><trkpt lat='1' lon='2'/></trkseg></trk></gpx>");
  EXPECT_EQ(run(folder, "convert none.gpx day.tcx").status, 1);
  EXPECT_EQ(folder.read("day.tcx"), folder.read("all/day.tcx"));
  EXPECT_THAT(folder.read("out/day.geojson"), HasSubstr("coordTimes"));
  const std::string figures = run(folder, "day day.csv --json").output;
  EXPECT_EQ(run(folder, "day - --json <day.csv").output, figures);
  EXPECT_THAT(figures, HasSubstr(R"("runs":1,"lifts":1)"));
}

// Catches a line that is written in the wrong order of numbers, or read back otherwise.
TEST(CommandTests, WritesAndChecksGeometries) {
  const testing::ScopedDir folder;
  folder.write("day.csv",
               "1700000000,46.5,7.25,1500,90,5,3,4\n1700000001,-46.6,7.5,1510,90,7,3,4\n");
  folder.write("bad.json", R"({"type":"MultiPoint","coordinates":[]})");
  EXPECT_EQ(run(folder, "day day.csv --geojson line.json").status, 0);
  const std::string line = R"({"type":"LineString","coordinates":[[7.25,46.5],[7.5,-46.6]]})";
  EXPECT_EQ(folder.read("line.json"), line);
  EXPECT_EQ(run(folder, "geojson line.json").output, line + "\n");
  folder.write("marked.json", "\xEF\xBB\xBF" + line);
  EXPECT_EQ(run(folder, "geojson marked.json").output, line + "\n");
  const Outcome bad = run(folder, "geojson bad.json");
  EXPECT_EQ(bad.status, 1);
  EXPECT_THAT(bad.output, HasSubstr("bad.json is not a geometry"));
}

// Catches days that are forgotten with the process, kept twice, or listed oldest first.
TEST(CommandTests, RemembersTheLastDays) {
  const testing::ScopedDir folder;
  fs::remove_all(std::getenv("XDG_DATA_HOME"));
  const auto write = [&](const char* name, int start) {
    std::string rows;
    for (int i = 0; i < 100; ++i) {
      rows += fmt::format("{},{:.4f},7.25,{},0,11,3,4\n", start + i, 46.5 + i * 1e-4, 1500 - i);
    }
    folder.write(name, rows);
  };
  write("first.csv", 1'700'000'000);
  write("second.csv", 1'700'100'000);
  for (const char* track : {"first.csv", "second.csv", "first.csv"}) {
    EXPECT_EQ(run(folder, std::string("day --json ") + track).status, 0);
  }
  const std::string days = run(folder, "days --units kilometers").output;
  EXPECT_THAT(days, AllOf(HasSubstr("  2023  "), HasSubstr("Thu, Nov 16"), HasSubstr("████"),
                          HasSubstr("Days: 2"), HasSubstr(" 198 M ")));
  EXPECT_LT(days.find("second.csv"), days.find("first.csv"));
  EXPECT_EQ(std::ranges::count(days, '\n'), 4);
  EXPECT_THAT(run(folder, "days --json").output,
              AllOf(HasSubstr(R"({"season":"2023","distanceMeters":21)"), HasSubstr(R"("runs":2,)"),
                    HasSubstr(R"("title":"second.csv","startTime":17001)")));
  // Two seasons of one year are told apart.
  write("third.csv", 1'675'000'000);
  EXPECT_EQ(run(folder, "day third.csv").status, 0);
  EXPECT_THAT(run(folder, "days --json").output,
              AllOf(HasSubstr(R"("season":"2023-11")"), HasSubstr(R"("season":"2023-01")")));
  // A day without altitudes has no descent, and one whose file is damaged is told of.
  folder.write(
      "flat.gpx",
      "<gpx><trk><trkseg><trkpt lat='46' lon='7'><time>2024-02-01T12:00:00Z</time></trkpt>"
      "<trkpt lat='46.001' lon='7'><time>2024-02-01T12:00:20Z</time></trkpt></trkseg></trk>"
      "</gpx>");
  EXPECT_EQ(run(folder, "day flat.gpx").status, 0);
  EXPECT_THAT(run(folder, "days --json").output, HasSubstr(R"("descentMeters":null,)"));
  EXPECT_THAT(run(folder, "days").output, HasSubstr(" –   "));
  const fs::path data = std::getenv("XDG_DATA_HOME");
  std::ofstream(data / "com.brannoway.ombrix/Days/1700100000.data", std::ios::app) << '\xFF';
  const Outcome damaged = run(folder, "days");
  EXPECT_EQ(damaged.status, 1);
  EXPECT_THAT(damaged.output, AllOf(HasSubstr("first.csv"), Not(HasSubstr("second.csv")),
                                    HasSubstr("1 kept days cannot be read")));
  EXPECT_THAT(run(folder, "compare first.csv second.csv --locale de_DE").output,
              AllOf(HasSubstr("Di., 14. Nov."), HasSubstr("Unterschied")));
}

// Catches a command that removes or replaces what is no text of a store: another program's file, a
// folder, a value of another type, what a link leads to.
TEST(CommandTests, StoreCommandsHarmNothingForeign) {
  using namespace std::string_literals;
  const testing::ScopedDir folder;
  EXPECT_EQ(run(folder, "store put kept morning tea").status, 0);
  const std::string day = folder.read(EARLIER_DAYS "/Days/1700000001.data");
  const std::pair<const char*, std::string> foreign[] = {
      {"game", "SAVED GAME"},  {"zero", "\0foreign save"s},
      {"tree/leaf", "x"},      {"picture", "<?xml version=\"1.0\"?><svg/>"},
      {"link", "linked text"}, {"day", day}};
  for (const auto& [name, contents] : foreign) {
    std::string file = "kept/"s + name + ".data";
    const std::string key = fs::path(name).begin()->string();
    if (key == "tree") file = "kept/tree.data/leaf";
    if (key == "link") {
      file = "linked.txt";
      fs::create_symlink("../linked.txt", folder.path() / "kept/link.data");
    }
    folder.write(file, contents);
    for (const std::string& command :
         {"get kept " + key, "put kept " + key + " x", "purge kept --all"s, "purge kept " + key}) {
      if (command == "purge kept day") continue;  // it is a store's, and asked for by name
      const Outcome outcome = run(folder, "store " + command);
      EXPECT_EQ(outcome.status, command == "purge kept --all" && key == "day" ? 0 : 1) << command;
      if (command.ends_with("--all") && key == "day") continue;
      EXPECT_EQ(folder.read(file), contents) << command;
    }
    EXPECT_TRUE(key == "day" || run(folder, "store get kept morning").output == "tea\n") << key;
    fs::remove_all(folder.path() / "kept" / (key + ".data"));
  }
  EXPECT_FALSE(fs::exists(folder.path() / "kept"));
  // Through a link the folder goes that it leads to.
  EXPECT_EQ(run(folder, "store put real k v").status, 0);
  fs::create_directory_symlink("real", folder.path() / "alias");
  EXPECT_EQ(run(folder, "store purge alias --all").status, 0);
  EXPECT_FALSE(fs::exists(folder.path() / "real"));
}

// Catches days that are lost when programs keep them at once, and a day that is listed without its
// file.
TEST(CommandTests, ProgramsKeepDaysTogether) {
  const testing::ScopedDir folder;
  const fs::path data = std::getenv("XDG_DATA_HOME");
  fs::remove_all(data);
  const auto count = [](const std::string& output) {
    return std::count(output.begin(), output.end(), '\n') - 2;  // The heading and the sums.
  };
  for (int i = 0; i < 8; ++i) {
    folder.write(std::to_string(i), std::to_string(1'700'000'000 + i) + ",46,7,1500,90,5,3,4\n");
  }
  const Outcome kept =
      run(folder, "--version >/dev/null; cd '" + folder.path().string() +
                      "'; for i in 0 1 2 3 4 5 6 7; do '" OMBRIX_PROGRAM
                      "' day $i >/dev/null & done; wait; '" OMBRIX_PROGRAM "' days");
  EXPECT_EQ(count(kept.output), 8) << kept.output;
  fs::remove(data / "com.brannoway.ombrix/Days/1700000003.data");
  EXPECT_EQ(count(run(folder, "days").output), 7);
}

// Catches days that an update no longer lists, more of them than are to be kept, and the removal of
// what could not be taken over into the container.
TEST(CommandTests, DaysOfAnEarlierBuildAreTakenOver) {
  const testing::ScopedDir folder;
  const fs::path data = std::getenv("XDG_DATA_HOME");
  const fs::path older = data / "com.brannoway.ombrix",
                 shared = data / "group.com.brannoway.ombrix";
  fs::remove_all(data);
  fs::create_directories(older);
  fs::copy(EARLIER_DAYS, older, fs::copy_options::recursive);
  const auto expected = AllOf(HasSubstr("11.1 KM     –          –  d3.csv\n"),
                              HasSubstr("d2.csv\n"), HasSubstr("d1.csv\n"), HasSubstr("Days: 1"));
  EXPECT_THAT(run(folder, "days --units kilometers").output, expected);
  folder.write("part.csv", "1700000003,46.5,7.25,1500,90,5,3,4\n");
  EXPECT_THAT(run(folder, "day part.csv").output, HasSubstr("more of it is kept already"));
  fs::create_directories(older / "Days/no-day.data/leaf");
  fs::create_directory(shared);
  EXPECT_THAT(run(folder, "days --units kilometers").output, expected);
  EXPECT_TRUE(fs::exists(older / "Days/no-day.data/leaf"));
  EXPECT_FALSE(fs::exists(older / "Days/1700000001.data"));

  const fs::path days = shared / "Library/Application Support/com.brannoway.ombrix/Days";
  for (int i = 0; i < 400; ++i) {
    fs::copy_file(EARLIER_DAYS "/Days/1700000001.data",
                  days / (std::to_string(1'600'000'000 + i) + ".data"));
  }
  fs::remove(days.parent_path() / "recent-days.plist");
  const std::string listed = run(folder, "days").output;
  EXPECT_EQ(std::ranges::count(listed, '\n'), 402) << listed;  // and the heading and the sums
  EXPECT_EQ(std::distance(fs::directory_iterator(days), {}), 400);

  // A part of a day in the container gives way to the whole day, and an early one to later ones.
  const std::string part = "1500000000,46.5,7.25,1500,90,5,3,4\n";
  folder.write("part.csv", part);
  EXPECT_THAT(run(folder, "day part.csv").output, HasSubstr("there are 400 later ones"));
  fs::remove_all(shared);
  fs::create_directory(shared);
  run(folder, "day part.csv");
  fs::rename(shared, data / "elsewhere");
  folder.write("whole.csv", part + "1500000001,46.5,7.25,1500,90,5,3,4\n");
  run(folder, "day whole.csv");
  fs::rename(data / "elsewhere", shared);
  EXPECT_THAT(run(folder, "days").output, AllOf(HasSubstr("whole.csv"), HasSubstr("Days: 1")));
}

// Catches days that a program cannot keep and therefore does not show.
TEST(CommandTests, ADayThatCannotBeKeptIsShown) {
  const testing::ScopedDir folder;
  folder.write("day.csv", "1700000000,46.5,7.25,1500,90,5,3,4\n");
  const Outcome outcome = run(folder, "day day.csv", "XDG_DATA_HOME=/proc/none ");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.output, HasSubstr("warning: the day is not kept"));
}

// Catches a change that another process does not hear of, or hears of twice.
TEST(CommandTests, ProcessesSeeEachOthersChangesOnce) {
  const testing::ScopedDir folder;
  Running phone("settings watch --count 3");
  Running watch("settings watch --count 3");
  for (Running* each : {&phone, &watch}) EXPECT_THAT(each->nextLine(), HasSubstr("Watching"));
  const char* changes[][2] = {
      {"settings set metricType kilometers", "metricType = kilometers\n"},
      {"settings set extraLogging true", "extraLogging = true\n"},
      {"settings set metricType miles", "metricType = miles\n"},
  };
  for (const auto& [change, line] : changes) {
    EXPECT_EQ(run(folder, change).status, 0);
    for (Running* each : {&phone, &watch}) EXPECT_EQ(each->nextLine(), line);
  }
  for (Running* each : {&phone, &watch}) {
    EXPECT_EQ(each->nextLine(), "");
    EXPECT_EQ(each->wait(), 0);
  }
}

// Catches a watch that does not take the phone's unit system, or hears of it twice.
TEST(CommandTests, ADeviceTakesItsCompanionsUnits) {
  const testing::ScopedDir folder;
  EXPECT_EQ(run(folder, "settings companion send units british").status, 0);
  EXPECT_EQ(run(folder, "settings get metricType").output, "miles\n");
  Running watch("settings companion watch --count 3");
  EXPECT_THAT(watch.nextLine(), HasSubstr("metricType = british"));
  const char* changes[][2] = {
      {"units kilometers", "metricType changed; metricType = kilometers\n"},
      {"enableExtraLogging true", "extraLogging changed; metricType = kilometers\n"},
      {"units miles", "metricType changed; metricType = miles\n"},
  };
  for (const auto& [change, line] : changes) {
    EXPECT_EQ(run(folder, std::string("settings companion send ") + change).status, 0);
    EXPECT_EQ(watch.nextLine(), line);
  }
  EXPECT_EQ(watch.nextLine(), "");
  EXPECT_EQ(watch.wait(), 0);
}

// Catches skipped rows that leave no trace in the log the user can send in, and one bad byte, or
// a hole larger than all memory, that keeps the user from seeing any of it.
TEST(CommandTests, SkippedRowsAreInTheLog) {
  const testing::ScopedDir folder;
  folder.write("day.csv", "1700000001,46.5,7.25\n1700000001,46.5,x,1500,90,5,3,4\n");
  EXPECT_EQ(run(folder, "day day.csv").status, 1);
  EXPECT_THAT(run(folder, "log").output,
              AllOf(HasSubstr("Data: Location row didn't have complete data | [LocationCSVParser "),
                    HasSubstr("Data: Error while trying to read CSV for migration, bad row | [")));
  const std::string append =
      " && printf 'cut \\377 short' >>\"$(ls $XDG_CACHE_HOME/ombrix/Logs/*)\"";
  EXPECT_EQ(run(folder, "--version" + append).status, 0);
  EXPECT_THAT(run(folder, "log").output,
              AllOf(HasSubstr("bad row | ["), HasSubstr("cut \uFFFD short")));
  EXPECT_THAT(run(folder, "log -n 1 --level error").output,
              AllOf(HasSubstr("bad row | ["), Not(HasSubstr("complete data"))));
  EXPECT_THAT(
      run(folder, "log --json").output,
      HasSubstr(R"("level":"error","message":"Data: Location row didn't have complete data",)"
                R"("file":"LocationCSVParser","function":)"));
  // What other processes log is followed.
  Running following("log -f -n 1 --level error");
  EXPECT_THAT(following.nextLine(), HasSubstr("bad row | ["));
  EXPECT_EQ(run(folder, "day day.csv").status, 1);
  std::string line = following.nextLine();  // The line that was cut short, first.
  for (int i = 0; i < 3 && line.find("Data: ") == line.npos; ++i) line = following.nextLine();
  EXPECT_THAT(line, HasSubstr("Data: "));
  run(folder, "--version && truncate -s 1G $XDG_CACHE_HOME/ombrix/Logs/*" + append);
  EXPECT_THAT(run(folder, "log 2>&1").output,
              AllOf(HasSubstr("\uFFFD"), HasSubstr("last 32 MB"), Not(HasSubstr("bad row"))));
}

// Catches help that is wider than the terminal, that is not the user's, and completion that offers
// what is not there.
TEST(CommandTests, HelpFitsTheTerminalAndTheShell) {
  const testing::ScopedDir folder;
  folder.write("day.csv", "");
  const std::string help =
      run(folder, "--version; COLUMNS=40 '" OMBRIX_PROGRAM "' day --help").output;
  EXPECT_THAT(help, HasSubstr("ombrix 0."));
  std::istringstream lines(help);
  for (std::string line; std::getline(lines, line);) EXPECT_LE(columnsOf(line), 40u) << line;
  ASSERT_EQ(run(folder, "sample ride.csv --runs 1").status, 0);
  for (const char* command : {"day ride.csv", "days", "compare ride.csv ride.csv"}) {
    std::istringstream report(run(folder, command, "COLUMNS=62 LC_ALL=de_DE.UTF-8 ").output);
    for (std::string line; std::getline(report, line);) EXPECT_LE(columnsOf(line), 62u) << line;
  }
  EXPECT_EQ(run(folder, "help settings sync").output, run(folder, "settings sync -h").output);
  EXPECT_THAT(run(folder, "day --locale pt_PT --help").output,
              AllOf(HasSubstr("Mede dias gravados"), HasSubstr("Opções:")));
  EXPECT_THAT(run(folder, "help --man").output, HasSubstr(".SS \"day TRACK\""));

  run(folder, "completion bash >ombrix.bash");
  const std::pair<const char*, const char*> completed[] = {
      {"da", "day days "},       {"settings ", "companion get list set sync unset watch "},
      {"day --un", "--units "},  {"day --units m", "miles "},
      {"day d", "day.csv "},     {"settings sync en", "enable "},
      {"completion z", "zsh "},  {"days --units miles --j", "--json "},
      {"help set", "settings "}, {"settings get ", "extraLogging metricType syncPreferences "},
  };
  for (const auto& [typed, words] : completed) {
    const std::string line = std::string("ombrix ") + typed;
    const std::string script =
        "--version >/dev/null; cd '" + folder.path().string() +
        "' && LC_ALL=C bash -c '. ./ombrix.bash; IFS=\" \" read -ra COMP_WORDS <<<\"" + line +
        "\"; [[ \"" + line +
        "\" == *\" \" ]] && COMP_WORDS+=(\"\");"
        " COMP_CWORD=$((${#COMP_WORDS[@]}-1)); _ombrix; printf \"%s \" $(printf \"%s\\n\""
        " \"${COMPREPLY[@]}\" | sort)'";
    EXPECT_EQ(run(folder, script).output, words) << typed;
  }
}

// Catches help that is partly English because a language's table lacks a text, or has it under the
// words of before.
TEST(CommandTests, HelpIsWhollyInEachLanguage) {
  const testing::ScopedDir folder;
  const auto manual = [&](const std::string& locale) {
    std::istringstream page(run(folder, "help --man", "LANGUAGE= LC_ALL=" + locale + " ").output);
    std::vector<std::string> lines;
    for (std::string line; std::getline(page, line);) lines.push_back(line);
    return lines;
  };
  const std::set<std::string> sameByRight = {".SH DESCRIPTION", ".SH OPTIONS", ".SH SYNOPSIS",
                                             "kilometers, miles, british; true, false"};
  const auto english = manual("C");
  ASSERT_GT(english.size(), 500U);
  for (const char* locale : {"ca_ES", "de_DE", "es_ES", "fr_FR", "it_IT", "ja_JP", "pt_PT"}) {
    const auto translated = manual(std::string(locale) + ".UTF-8");
    ASSERT_EQ(translated.size(), english.size()) << locale;
    std::set<std::string> lacking;
    for (std::size_t i = 0; i < english.size(); ++i) {
      const std::string& line = english[i];
      // Names, and examples that are there to be copied, are the same in every language.
      const bool isText = line.starts_with(".SH ") || line.find_first_of(".\\ ") != 0;
      if (isText && translated[i] == line && !sameByRight.contains(line)) lacking.insert(line);
    }
    EXPECT_THAT(lacking, ::testing::IsEmpty()) << locale;
  }
}

// Catches a demonstration that stops half-way, or whose files are not those of the day it shows.
TEST(CommandTests, DemonstratesTheWholeWay) {
  const testing::ScopedDir folder;
  const std::string demo = run(folder, "demo --out shown --locale de_DE").output;
  for (const char* step : {"Dienst gestartet", "Angemeldet", "Großkogel", "13.173 Messpunkte",
                           "12 Abfahrten, 12 Lifte", "Sonntag, 11. Februar 2024", "⣿",
                           "Tag aufbewahrt", "Tag hochgeladen", "sample-day.html"}) {
    EXPECT_THAT(demo, HasSubstr(step));
  }
  EXPECT_THAT(folder.read("shown/sample-day.html"), HasSubstr("Sonntag, 11. Februar 2024"));
  EXPECT_THAT(run(folder, "days --units kilometers").output, HasSubstr("sample-day.track.csv"));
  // A name that nobody gave.
  ASSERT_EQ(::mkfifo((folder.path() / "sample-day.html").c_str(), 0600), 0);
  EXPECT_THAT(run(folder, "demo").output, HasSubstr("sample-day.html is no file"));
}

}  // namespace
}  // namespace ombrix::hostapp
