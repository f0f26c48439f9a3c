#include "Examples/HostApp/Service/DayUpload.hpp"

#include "Examples/HostApp/Commands/Commands.hpp"
#include "Examples/HostApp/Service/Server.hpp"

namespace ombrix::hostapp {

UploadedDay uploadDay(const platform::JSON& figures, const std::string& trackFile) {
  const auto day = post("days", figures.rawData());
  const std::string name = day["id"].stringValue();
  if (name.empty()) throw CommandFailure("the service's answer has no id for the day");
  const auto track = platform::JSON::parse(uploadFile(trackFile, "tracks/" + name, "PUT").data);
  return {name, track["size"].unsignedInteger().value_or(0)};
}

}  // namespace ombrix::hostapp
