// Any bytes as a heart-rate recording, apart from short rows, which stop the program by design.

#include <cstdint>
#include <cstdlib>

#include "OmbrixCore/Data/HRCSVParser.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ombrix;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const HRCSVParser parser;
  std::size_t samples = 0;
  platform::CSVReader reader(text, {.keptFields = 2});
  bool hasShortRow = false;
  while (const auto row = reader.next()) {
    hasShortRow = hasShortRow || row->size() < 2;
    if (row->size() >= 2) samples += parser.parseTransform(*row).has_value();
  }
  if (!hasShortRow && parser.parse(text).value().size() != samples) std::abort();
  return 0;
}
