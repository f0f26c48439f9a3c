#include "OmbrixC/Location/OmbrixLocationCSV.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <utility>

#include "OmbrixC/Detail/Copies.hpp"
#include "OmbrixC/Detail/ErrorOut.hpp"
#include "OmbrixC/Location/Detail/Lists.hpp"
#include "OmbrixC/Location/Detail/Location.hpp"
#include "OmbrixC/Location/Detail/Streams.hpp"
#include "OmbrixCore/Data/LocationCSVParser.hpp"
#include "OmbrixCore/Data/LocationCSVWriter.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

using namespace ombrix;

struct OmbrixLocationCSVParser {
  LocationCSVParser parser;
  ombrix::c::Handle handle = {};
};

struct OmbrixLocationCSVWriter {
  LocationCSVWriter writer;
  ombrix::c::Handle handle = {};
};

namespace {

constexpr LogTag kTag{"OmbrixC/OmbrixLocationCSV", "parse"};

OmbrixLocations copied(LocationCSVParser::Locations locations) {
  const auto [copies, count] = c::copied(std::move(locations), &c::toC, kTag);
  return {copies, count};
}

LocationCSVParser::Completion calling(OmbrixLocationsCompletion completion, void* context) {
  return [completion, context](LocationCSVParser::Locations locations) {
    completion(copied(std::move(locations)), context);
  };
}

bool writeThrough(void* context, const uint8_t* bytes, size_t length) {
  auto* const stream = static_cast<platform::OutputStream*>(context);
  return stream->write(std::as_bytes(std::span(bytes, length))).has_value();
}

}  // namespace

void ombrix_Locations_release(OmbrixLocations locations) {
  std::free(c::uncounted(locations.locations));
}

OmbrixLocationCSVParser* ombrix_LocationCSVParser_init(void) {
  return c::catching(nullptr, [] { return new OmbrixLocationCSVParser; });
}

void ombrix_LocationCSVParser_release(OmbrixLocationCSVParser* self) { delete self; }

OmbrixLocations ombrix_LocationCSVParser_parseWithUrl_(const OmbrixLocationCSVParser* self,
                                                       const char* url) {
  return c::logging(kTag, [&] { return copied(self->parser.parse(c::urlFrom(url))); });
}

OmbrixLocations ombrix_LocationCSVParser_parseWithString_(const OmbrixLocationCSVParser* self,
                                                          const char* string) {
  return c::logging(kTag, [&] { return copied(self->parser.parse(c::textFrom(string))); });
}

OmbrixLocations ombrix_LocationCSVParser_parseWithStream_(const OmbrixLocationCSVParser* self,
                                                          OmbrixInputStream stream) {
  c::FunctionInputStream input(stream);
  return c::logging(kTag, [&] { return copied(self->parser.parse(input)); });
}

OmbrixLocations ombrix_LocationCSVParser_parseWithData_(const OmbrixLocationCSVParser* self,
                                                        const uint8_t* bytes, size_t length) {
  return c::logging(
      kTag, [&] { return copied(self->parser.parse(std::as_bytes(std::span(bytes, length)))); });
}

void ombrix_LocationCSVParser_parseWithUrl_completion_(const OmbrixLocationCSVParser* self,
                                                       const char* url,
                                                       OmbrixLocationsCompletion completion,
                                                       void* context) {
  c::completingWith(completion, context, kTag,
                    [&] { self->parser.parse(c::urlFrom(url), calling(completion, context)); });
}

void ombrix_LocationCSVParser_parseWithString_completion_(const OmbrixLocationCSVParser* self,
                                                          const char* string,
                                                          OmbrixLocationsCompletion completion,
                                                          void* context) {
  c::completingWith(completion, context, kTag,
                    [&] { self->parser.parse(c::textFrom(string), calling(completion, context)); });
}

void ombrix_LocationCSVParser_parseWithStream_completion_(const OmbrixLocationCSVParser* self,
                                                          OmbrixInputStream stream,
                                                          OmbrixLocationsCompletion completion,
                                                          void* context) {
  c::completingWith(completion, context, kTag, [&] {
    self->parser.parse(std::make_shared<c::FunctionInputStream>(stream),
                       calling(completion, context));
  });
}

void ombrix_LocationCSVParser_parseWithData_completion_(const OmbrixLocationCSVParser* self,
                                                        const uint8_t* bytes, size_t length,
                                                        OmbrixLocationsCompletion completion,
                                                        void* context) {
  const auto view = std::as_bytes(std::span(bytes, length));
  c::completingWith(completion, context, kTag, [&] {
    self->parser.parse(platform::Data(view.begin(), view.end()), calling(completion, context));
  });
}

OmbrixLocationCSVWriter* ombrix_LocationCSVWriter_init(void) {
  platform::fatalError("Use of unimplemented initializer \"init()\" for class LocationCSVWriter");
}

OmbrixLocationCSVWriter* ombrix_LocationCSVWriter_initWithUrl_error_(const char* url,
                                                                     OmbrixError** error) {
  return c::catching(
      error, [&] { return new OmbrixLocationCSVWriter{LocationCSVWriter(c::fileURLFrom(url))}; });
}

OmbrixLocationCSVWriter* ombrix_LocationCSVWriter_initWithStream_error_(OmbrixOutputStream stream,
                                                                        OmbrixError** error) {
  return c::catching(error, [&] {
    return new OmbrixLocationCSVWriter{
        LocationCSVWriter(std::make_shared<c::FunctionOutputStream>(stream))};
  });
}

void ombrix_LocationCSVWriter_release(OmbrixLocationCSVWriter* self) { delete self; }

bool ombrix_LocationCSVWriter_addLocation_error_(OmbrixLocationCSVWriter* self,
                                                 const OmbrixLocation* location,
                                                 OmbrixError** error) {
  return ombrix_LocationCSVWriter_addLocations_error_(self, location, 1, error);
}

bool ombrix_LocationCSVWriter_addLocations_error_(OmbrixLocationCSVWriter* self,
                                                  const OmbrixLocation* locations, size_t count,
                                                  OmbrixError** error) {
  return c::catching(error, [&] {
    std::vector<CLLocation> fixes(count);
    std::transform(locations, locations + count, fixes.begin(),
                   [](const OmbrixLocation& location) { return c::from(location); });
    self->writer.add(fixes);
    return true;
  });
}

uint64_t ombrix_LocationCSVWriter_fixesWritten(const OmbrixLocationCSVWriter* self) {
  return self->writer.fixesWritten();
}

bool ombrix_LocationCSVWriter_sync_(OmbrixLocationCSVWriter* self, OmbrixError** error) {
  return c::catching(error, [&] {
    self->writer.sync();
    return true;
  });
}

OmbrixOutputStream ombrix_LocationCSVWriter_stream(const OmbrixLocationCSVWriter* self) {
  return {self->writer.stream().get(), &writeThrough};
}
