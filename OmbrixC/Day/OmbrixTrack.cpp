#include "OmbrixC/Day/OmbrixTrack.h"

#include <cerrno>
#include <utility>

#include "OmbrixC/Day/Detail/Tracks.hpp"
#include "OmbrixC/Detail/Copies.hpp"
#include "OmbrixC/Detail/ErrorOut.hpp"
#include "OmbrixPlatform/Files/InputStream.hpp"

using namespace ombrix;

static_assert(static_cast<int>(TrackFormat::csv) == OmbrixTrackFormatCSV &&
              static_cast<int>(TrackFormat::gpx) == OmbrixTrackFormatGPX &&
              static_cast<int>(TrackFormat::tcx) == OmbrixTrackFormatTCX &&
              static_cast<int>(TrackFormat::geoJSON) == OmbrixTrackFormatGeoJSON &&
              static_cast<int>(TrackFormat::fit) == OmbrixTrackFormatFIT);

static_assert(static_cast<int>(LapTrigger::manual) == OmbrixLapTriggerManual &&
              static_cast<int>(LapTrigger::distance) == OmbrixLapTriggerDistance &&
              static_cast<int>(LapTrigger::location) == OmbrixLapTriggerLocation &&
              static_cast<int>(LapTrigger::time) == OmbrixLapTriggerTime &&
              static_cast<int>(LapTrigger::heartRate) == OmbrixLapTriggerHeartRate);

namespace {

TrackFormat from(OmbrixTrackFormat format) {
  const auto raw = static_cast<int>(format);
  if (raw < OmbrixTrackFormatCSV || raw > OmbrixTrackFormatFIT) {
    throw TrackFormatError("There is no track format " + std::to_string(raw) + ".");
  }
  return static_cast<TrackFormat>(raw);
}

platform::Data readAll(platform::InputStream& stream, const std::string& path) {
  constexpr std::size_t kBlockBytes = std::size_t{256} << 10U;
  if (const auto opened = stream.open(); !opened) throw platform::FileError(opened.error());
  platform::Data bytes;
  for (std::size_t size = 0;;) {
    if (bytes.size() < size + kBlockBytes) bytes.resize(size + size / 4 + kBlockBytes);
    const auto count = stream.read(std::span(bytes).subspan(size));
    if (!count) throw platform::FileError(count.error());
    size += *count;
    if (size > kMostTrackBytes) throw platform::FileError(EFBIG, "read", path);
    if (*count > 0) continue;
    bytes.resize(size);
    return bytes;
  }
}

}  // namespace

OmbrixTrack* ombrix_Track_initWithUrl_error_(const char* url, OmbrixError** error) {
  return c::catching(error, [&] {
    const std::string path = c::fileURLFrom(url).path();
    try {
      const auto bytes = readAll(*platform::InputStream::withPath(path), path);
      const auto format = trackFormatOfFile(path).value_or(trackFormatOfBytes(bytes));
      return new OmbrixTrack(readTrack(bytes, format));
    } catch (const TrackFormatError& fault) {
      throw TrackFormatError(path + ": " + fault.what());
    } catch (const std::bad_alloc&) {
      throw platform::FileError(ENOMEM, "read", path);
    }
  });
}

OmbrixTrack* ombrix_Track_initWithData_format_error_(const uint8_t* bytes, size_t length,
                                                     OmbrixTrackFormat format,
                                                     OmbrixError** error) {
  return c::catching(error, [&] {
    return new OmbrixTrack(readTrack(std::as_bytes(std::span(bytes, length)), from(format)));
  });
}

OmbrixTrack* ombrix_Track_initWithLocations_count_name_(const OmbrixLocation* locations,
                                                        size_t count, const char* name) {
  return c::catching(nullptr, [&] {
    const auto fixes = c::from(locations, count);
    Track track{.name = std::string(c::textFrom(name)), .fixes = {fixes.begin(), fixes.end()}};
    return new OmbrixTrack(std::move(track));
  });
}

void ombrix_Track_release(OmbrixTrack* self) { delete self; }

const char* ombrix_Track_name(const OmbrixTrack* self) { return self->track.name.c_str(); }

const OmbrixLocation* ombrix_Track_locations(const OmbrixTrack* self) {
  return reinterpret_cast<const OmbrixLocation*>(self->track.fixes.data());
}
size_t ombrix_Track_locationCount(const OmbrixTrack* self) { return self->track.fixes.size(); }

const OmbrixHeartRate* ombrix_Track_heartRates(const OmbrixTrack* self) {
  return reinterpret_cast<const OmbrixHeartRate*>(self->track.heartRates.data());
}
size_t ombrix_Track_heartRateCount(const OmbrixTrack* self) {
  return self->track.heartRates.size();
}

const double* ombrix_Track_laps(const OmbrixTrack* self) { return self->lapBegins.data(); }
const OmbrixLap* ombrix_Track_lapFigures(const OmbrixTrack* self) { return self->laps.data(); }
size_t ombrix_Track_lapCount(const OmbrixTrack* self) { return self->lapBegins.size(); }

size_t ombrix_Track_skipped(const OmbrixTrack* self) { return self->track.skipped; }
const char* ombrix_Track_fault(const OmbrixTrack* self) { return self->track.fault.c_str(); }

OmbrixData ombrix_Track_dataInFormat_error_(const OmbrixTrack* self, OmbrixTrackFormat format,
                                            OmbrixError** error) {
  return c::catching(error, [&] {
    const std::string text = writeTrack(self->track, from(format));
    return c::copied(std::optional(platform::dataFrom(text)));
  });
}
