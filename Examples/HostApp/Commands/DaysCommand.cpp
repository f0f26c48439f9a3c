#include <fmt/format.h>

#include <CLI/CLI.hpp>

#include "Examples/HostApp/Commands/Commands.hpp"
#include "Examples/HostApp/Commands/Preferences.hpp"
#include "Examples/HostApp/Days/RecentDays.hpp"
#include "Examples/HostApp/Terminal/ReportLine.hpp"
#include "OmbrixPlatform/Text/DateFormatter.hpp"

namespace ombrix::hostapp {

void addDaysCommand(CLI::App& app) {
  CLI::App* command = app.add_subcommand("days", "Lists the days that were summarised last");
  addPreferenceOptions(*command);
  command->callback([] {
    using Format = OmbrixMeasurementFormatter::MeasurementFormat;
    const platform::DateFormatter start("y-MM-dd HH:mm");
    for (const RememberedDay& day : RecentDays().days()) {
      fmt::print("{}  {}, down {}  {}\n",
                 start.stringFrom(platform::dateSince1970(day.startSeconds)),
                 styledValue(Format::distance, day.distanceMeters),
                 styledValue(Format::vertical, day.descentMeters), day.title);
    }
  });
}

}  // namespace ombrix::hostapp
