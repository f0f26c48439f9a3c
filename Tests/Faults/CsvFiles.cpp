// CSV text of any kind against a reader that looks at one character after the other.

#include <algorithm>
#include <random>

#include "Faults/FaultRun.hpp"
#include "OmbrixPlatform/Csv/CSVReader.hpp"
#include "OmbrixPlatform/Files/InputStream.hpp"

namespace ombrix::platform {
namespace {

using Rows = std::vector<std::vector<std::string>>;
using Random = std::mt19937_64;

/// The first `count` fields of every row, character by character, with no thought for speed.
Rows plainlyRead(std::string_view text, std::size_t count, std::uint64_t& dropped) {
  constexpr std::size_t kMost = CSVReader::kMaximumFieldBytes;
  const auto endsRow = [&](std::size_t i) { return text[i] == '\n' || text[i] == '\r'; };
  Rows rows;
  for (std::size_t i = 0; i < text.size();) {
    if (endsRow(i)) {
      ++i;
      continue;
    }
    std::vector<std::string> row;
    bool isDropped = false;
    for (bool goesOn = true; goesOn && !isDropped;) {
      std::string field;
      std::size_t raw = 0;
      if (i < text.size() && text[i] == '"') {
        std::string inside;
        std::size_t close = i + 1;
        while (close < text.size() &&
               (text[close] != '"' || text.substr(close).starts_with("\"\""))) {
          inside += text[close];
          close += text[close] == '"' ? 2U : 1U;
        }
        if (close < text.size() && close - i - 1 <= kMost) {
          field = inside;
          raw = close - i - 1;
          i = close + 1;
        }
      }
      for (; i < text.size() && text[i] != ',' && !endsRow(i); ++i, ++raw) field += text[i];
      if (row.size() < count) {
        if (raw > kMost) isDropped = true;
        row.push_back(field);
      }
      goesOn = i < text.size() && text[i] == ',';
      if (goesOn) ++i;
    }
    while (isDropped && i < text.size() && !endsRow(i)) ++i;
    isDropped ? void(++dropped) : rows.push_back(row);
  }
  return rows;
}

/// Gives its bytes in pieces of chosen sizes.
class PiecewiseStream final : public InputStream {
 public:
  PiecewiseStream(std::string_view text, std::size_t largest, Random& random)
      : rest_(bytesOf(text)), largest_(largest), random_(random) {}
  FileResult<void> open() override {
    setStatus(StreamStatus::open);
    return {};
  }
  void close() noexcept override { setStatus(StreamStatus::closed); }
  FileResult<std::size_t> read(std::span<std::byte> buffer) override {
    const auto count = std::min({1 + random_() % largest_, buffer.size(), rest_.size()});
    std::ranges::copy(rest_.first(count), buffer.begin());
    rest_ = rest_.subspan(count);
    return count;
  }

 private:
  DataView rest_;
  std::size_t largest_;
  Random& random_;
};

std::string randomText(Random& random) {
  constexpr std::string_view kCommon = "\"\"\",,,\n\n\rab1 ";
  std::string text;
  if (random() % 16 == 0) text = "\xEF\xBB\xBF";
  for (auto pieces = random() % 60; pieces > 0; --pieces) {
    if (random() % 500 == 0) {
      // A long run around the limit of a field.
      const char c = std::string_view("x\",\n\0", 5)[random() % 5];
      text.append(CSVReader::kMaximumFieldBytes - 3 + random() % 6, c);
    } else {
      text += kCommon[random() % kCommon.size()];
    }
  }
  return text;
}

std::string oneLine(std::string_view text) {
  std::string line;
  for (const char c : text.substr(0, 200)) line += c == '\n' ? '|' : c == '\r' ? '/' : c;
  return line;
}

void check(const std::string& text, std::size_t kept, Random& random, faults::Outcomes& outcomes) {
  std::uint64_t dropped = 0;
  std::string_view content = text;
  if (content.starts_with("\xEF\xBB\xBF")) content.remove_prefix(3);
  const Rows expected = plainlyRead(content, kept, dropped);
  const auto isSame = [&](CSVReader& reader) {
    Rows rows;
    while (const auto row = reader.next()) rows.emplace_back(row->begin(), row->end());
    return rows == expected && reader.droppedRows() == dropped && reader.bytesRead() == text.size();
  };
  CSVReader inPlace(text, {.keptFields = kept});
  PiecewiseStream stream(text, text.size() > 10'000 ? 100'000 : 1 + random() % 9, random);
  CSVReader streamed(stream, {.keptFields = kept});
  outcomes.expect(isSame(inPlace) && isSame(streamed), "the rows of the plain reader",
                  oneLine(text));
}

}  // namespace
}  // namespace ombrix::platform

void ombrix::faults::run(const Plan& plan, Outcomes& outcomes) {
  using namespace ombrix::platform;
  Random random(plan.seed);
  const std::string most(CSVReader::kMaximumFieldBytes, 'x');
  const std::string long_(5 * CSVReader::kBlockBytes + 17, 'x');
  const std::string commas(3 * CSVReader::kBlockBytes, ',');
  std::string quotes;
  for (int i = 0; i < 30'000; ++i) quotes += "\"\"\"\"\"\"";
  const std::string cases[] = {
      "a," + most + "\nb",
      "a," + most + "x\nb",
      "a,\"" + most + "\"\nb",
      "a,\"" + most + "x\"\nb\nc",
      "a,\"" + most.substr(1) + "\"x,c\nb",
      "a,\"" + most + "\"x,c\nb",
      "a,b,\"" + most + "x\"" + ",c\nd",
      long_,
      long_ + "\na\r\n" + long_ + ",b\nc",
      "a,b," + long_ + "\nc,d," + commas + "\"e\nf\",g\nh",
      "\"a\",\"\"\"b\"," + commas + long_ + "\nc",
      commas,
      quotes + "\na",
      quotes + "\"\na,\"" + quotes + "\nb",
      "a,\"b\nc,d\n" + long_ + "\ne,f\n",
      "a,b,\"c\nd,e\n\"f\ng",
  };
  for (const auto& text : cases) check(text, 2, random, outcomes);
  for (std::size_t i = 0; i < plan.rounds(3000, 100'000); ++i) {
    check(randomText(random), 1 + random() % 9, random, outcomes);
  }
}
