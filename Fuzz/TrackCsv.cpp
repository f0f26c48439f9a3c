// Any bytes as a track: every way to read them gives the same fixes, and what is read can be
// written and read again.

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstdlib>

#include "OmbrixCore/Data/LocationCSVParser.hpp"
#include "OmbrixCore/Data/LocationCSVWriter.hpp"

namespace {

using namespace ombrix;

bool identical(const std::vector<CLLocation>& a, const std::vector<CLLocation>& b) {
  using Bits = std::array<std::uint64_t, sizeof(CLLocation) / 8>;
  return std::ranges::equal(a, b, [](const CLLocation& x, const CLLocation& y) {
    return std::bit_cast<Bits>(x) == std::bit_cast<Bits>(y);
  });
}

/// Gives its bytes in pieces whose sizes the bytes themselves choose.
class PiecewiseStream final : public platform::InputStream {
 public:
  explicit PiecewiseStream(platform::DataView bytes) : rest_(bytes) {}
  platform::FileResult<void> open() override {
    setStatus(platform::StreamStatus::open);
    return {};
  }
  void close() noexcept override {}
  platform::FileResult<std::size_t> read(std::span<std::byte> buffer) override {
    if (rest_.empty()) return 0;
    const auto wanted = 1 + std::to_integer<std::size_t>(rest_.front());
    const auto count = std::min({wanted, buffer.size(), rest_.size()});
    std::ranges::copy(rest_.first(count), buffer.begin());
    rest_ = rest_.subspan(count);
    return count;
  }

 private:
  platform::DataView rest_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const LocationCSVParser parser;
  std::vector<CLLocation> expected;
  platform::CSVReader reader(text, {.keptFields = 8});
  while (const auto row = reader.next()) {
    if (const auto fix = parser.parseTransform(*row)) expected.push_back(*fix);
  }
  if (!identical(parser.parse(text).value(), expected)) std::abort();
  PiecewiseStream stream(platform::bytesOf(text));
  if (!identical(parser.parse(stream).value(), expected)) std::abort();

  const std::shared_ptr written = platform::OutputStream::toMemory();
  LocationCSVWriter(written).add(expected);
  const auto finite = [](const CLLocation& fix) {
    const auto numbers = std::bit_cast<std::array<double, sizeof(CLLocation) / 8>>(fix);
    return std::ranges::all_of(numbers, [](double number) { return number - number == 0; });
  };
  const auto again = parser.parse(written->data().value());
  if (again.value().size() != static_cast<std::size_t>(std::ranges::count_if(expected, finite))) {
    std::abort();
  }
  return 0;
}
