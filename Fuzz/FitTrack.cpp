// The bytes are the messages of a FIT file; header and checksum are put around them.

#include "Fuzz/TrackFile.hpp"
#include "Tests/OmbrixDay/FITBytes.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using ombrix::TrackFormat;
  ombrix::testing::FITBytes file(false);
  for (std::size_t i = 0; i < size; ++i) file.put(data[i], 1);
  ombrix::fuzz::tryTrack(ombrix::platform::bytesOf(file.bytes()), TrackFormat::fit);
  ombrix::fuzz::tryTrack({reinterpret_cast<const std::byte*>(data), size}, TrackFormat::fit);
  return 0;
}
