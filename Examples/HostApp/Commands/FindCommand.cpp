#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <fstream>
#include <iostream>
#include <memory>

#include "Examples/HostApp/Commands/Arguments.hpp"
#include "Examples/HostApp/Commands/Commands.hpp"
#include "Examples/HostApp/Terminal/MatchedText.hpp"
#include "Examples/HostApp/Terminal/Terminal.hpp"
#include "OmbrixCore/Extensions/Fuzzy/FuzzyPattern.hpp"

namespace ombrix::hostapp {
namespace {

constexpr std::size_t kMostCells = 4'000'000;

std::vector<std::string> readLines(std::istream& in) {
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) {
    if (line.ends_with('\r')) line.pop_back();
    lines.push_back(std::move(line));
  }
  return lines;
}

std::vector<std::string> readLines(const std::string& path) {
  if (path.empty() || path == "-") return readLines(std::cin);
  std::ifstream in(path);
  if (!in) throw CommandFailure(fmt::format("cannot read {}", path));
  auto lines = readLines(in);
  if (in.bad()) throw CommandFailure(fmt::format("reading {} stopped before its end", path));
  return lines;
}

void find(const std::string& pattern, const std::string& path, std::size_t most) {
  const auto lines = readLines(path);
  const FuzzyPattern query(pattern);
  const auto marks = standardOutputTakesStyle() ? MatchMarks::bold() : MatchMarks::brackets();
  const auto ranked = rankedByFuzzyScore(lines, query);
  for (std::size_t i = 0; i < ranked.size() && i < most; ++i) {
    const std::string& line = lines[ranked[i].index];
    // Finding the letters' places takes a matrix; lines too long for one are shown without marks.
    const bool isMarked = line.size() * pattern.size() <= kMostCells;
    fmt::print("{:>4}  {}\n", ranked[i].score,
               isMarked ? markMatch(line, *query.match(line), marks) : line);
  }
  if (ranked.empty()) throw CommandFailure(fmt::format("no line matches {:?}", pattern));
}

}  // namespace

void addFindCommand(CLI::App& app) {
  struct Options {
    std::string pattern, path;
    std::size_t most = 20;
  };
  const auto options = std::make_shared<Options>();
  CLI::App* command =
      app.add_subcommand("find", "Ranks lines by how well a pattern matches, and shows where");
  command->add_option("PATTERN", options->pattern, "Letters in the order to look for")->required();
  command->add_option("FILE", options->path, "A text file; standard input without one");
  command->add_option("--most", options->most, "How many lines to print")
      ->check(wholeNumberBetween(0, kMostToCount))
      ->capture_default_str();
  command->callback([options] { find(options->pattern, options->path, options->most); });
}

}  // namespace ombrix::hostapp
