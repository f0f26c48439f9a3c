#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <string_view>

#include "Examples/HostApp/Commands/Commands.hpp"
#include "Examples/HostApp/Files/WholeFile.hpp"
#include "OmbrixCore/Location/GeoJSON.hpp"
#include "OmbrixDay/Filters/PlausibleFix.hpp"
#include "OmbrixPlatform/Coding/CodingError.hpp"
#include "OmbrixPlatform/Coding/JSONDecoder.hpp"
#include "OmbrixPlatform/Coding/JSONEncoder.hpp"

namespace ombrix::hostapp {
namespace {

GeoJSONGeometry readGeometry(const std::string& path) {
  const platform::Data bytes = readWholeFile(path);
  constexpr std::string_view kMark = "\xEF\xBB\xBF";
  const bool hasMark = platform::textOf(bytes).starts_with(kMark);
  try {
    return platform::JSONDecoder().decode<GeoJSONGeometry>(
        platform::DataView(bytes).subspan(hasMark ? kMark.size() : 0));
  } catch (const platform::DecodingError& error) {
    throw CommandFailure(fmt::format("{} is not a geometry: {}", path, error.what()));
  }
}

}  // namespace

void addGeoJSONCommand(CLI::App& app) {
  const auto path = std::make_shared<std::string>();
  CLI::App* command =
      app.add_subcommand("geojson", "Reads and checks a geometry object, and prints it again");
  command->add_option("FILE", *path, "A GeoJSON point, line string or polygon")->required();
  command->callback([path] {
    const platform::Data text = platform::JSONEncoder().encode(readGeometry(*path));
    fmt::print("{}\n", platform::textOf(text));
  });
}

void writeLineString(const std::string& path, std::span<const CLLocation> fixes) {
  GeoJSONLineString line;
  line.coordinates.reserve(fixes.size());
  for (const CLLocation& fix : fixes) {
    if (isOnGlobe(fix)) line.coordinates.push_back(fix.coordinate);
  }
  const platform::Data bytes = platform::JSONEncoder().encode(line);
  // The stream keeps a failed write's error until it is closed.
  writeFile(path, [&bytes](const auto& stream) { static_cast<void>(stream->write(bytes)); });
}

}  // namespace ombrix::hostapp
