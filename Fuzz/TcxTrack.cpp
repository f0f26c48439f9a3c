#include "Fuzz/TrackFile.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ombrix::fuzz::tryTrack({reinterpret_cast<const std::byte*>(data), size},
                         ombrix::TrackFormat::tcx);
  return 0;
}
