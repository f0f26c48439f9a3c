#pragma once

namespace ombrix::devserver {

/// A ski resort of the service; elevations in meters above sea level.
struct Resort {
  int id;
  const char* name;
  const char* country;
  double latitude, longitude;
  int baseElevation, summitElevation;
};

/// Made-up resorts at plausible places; some names contain non-ASCII letters on purpose.
inline constexpr Resort kResorts[] = {
    {1, "Weisshorn", "CH", 46.7789, 9.6805, 1775, 2653},
    {2, "Großkogel", "AT", 47.1296, 10.2682, 1304, 2811},
    {3, "Aiguille Bleue", "FR", 45.2970, 6.5800, 1450, 3230},
    {4, "Monte Sereno", "IT", 46.5405, 12.1357, 1224, 2932},
    {5, "北の峰", "JP", 42.8048, 140.6874, 260, 1308},
    {6, "Granite Bowl", "US", 39.6403, -106.3742, 2475, 3527},
    {7, "Whitefall", "CA", 50.1163, -122.9574, 675, 2284},
    {8, "Cordón del Sur", "CL", -33.3520, -70.2490, 2860, 3670},
};

}  // namespace ombrix::devserver
