#include "OmbrixC/Location/OmbrixHRCSV.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <utility>

#include "OmbrixC/Detail/Copies.hpp"
#include "OmbrixC/Detail/ErrorOut.hpp"
#include "OmbrixC/Location/Detail/Lists.hpp"
#include "OmbrixC/Location/Detail/Streams.hpp"
#include "OmbrixCore/Data/HRCSVParser.hpp"

using namespace ombrix;

struct OmbrixHRCSVParser {
  HRCSVParser parser;
  ombrix::c::Handle handle = {};
};

namespace {

OmbrixHeartRateSample toC(const platform::HKQuantitySample& sample) {
  static const platform::HKUnit unit = platform::HKUnit::fromString("count/min").value();
  return {sample.quantity().doubleValue(unit), platform::timeIntervalSince1970(sample.startDate()),
          platform::timeIntervalSince1970(sample.endDate())};
}

constexpr LogTag kTag{"OmbrixC/OmbrixHRCSV", "parse"};

OmbrixHeartRateSamples copied(HRCSVParser::Samples samples) {
  const auto [copies, count] = c::copied(std::move(samples), &toC, kTag);
  return {copies, count};
}

HRCSVParser::Completion calling(OmbrixHeartRateSamplesCompletion completion, void* context) {
  return [completion, context](HRCSVParser::Samples samples) {
    completion(copied(std::move(samples)), context);
  };
}

}  // namespace

void ombrix_HeartRateSamples_release(OmbrixHeartRateSamples samples) {
  std::free(c::uncounted(samples.samples));
}

OmbrixHRCSVParser* ombrix_HRCSVParser_init(void) {
  return c::catching(nullptr, [] { return new OmbrixHRCSVParser; });
}

void ombrix_HRCSVParser_release(OmbrixHRCSVParser* self) { delete self; }

OmbrixHeartRateSamples ombrix_HRCSVParser_parseWithUrl_(const OmbrixHRCSVParser* self,
                                                        const char* url) {
  return c::logging(kTag, [&] { return copied(self->parser.parse(c::urlFrom(url))); });
}

OmbrixHeartRateSamples ombrix_HRCSVParser_parseWithString_(const OmbrixHRCSVParser* self,
                                                           const char* string) {
  return c::logging(kTag, [&] { return copied(self->parser.parse(c::textFrom(string))); });
}

OmbrixHeartRateSamples ombrix_HRCSVParser_parseWithStream_(const OmbrixHRCSVParser* self,
                                                           OmbrixInputStream stream) {
  c::FunctionInputStream input(stream);
  return c::logging(kTag, [&] { return copied(self->parser.parse(input)); });
}

OmbrixHeartRateSamples ombrix_HRCSVParser_parseWithData_(const OmbrixHRCSVParser* self,
                                                         const uint8_t* bytes, size_t length) {
  return c::logging(
      kTag, [&] { return copied(self->parser.parse(std::as_bytes(std::span(bytes, length)))); });
}

void ombrix_HRCSVParser_parseWithUrl_completion_(const OmbrixHRCSVParser* self, const char* url,
                                                 OmbrixHeartRateSamplesCompletion completion,
                                                 void* context) {
  c::completingWith(completion, context, kTag,
                    [&] { self->parser.parse(c::urlFrom(url), calling(completion, context)); });
}

void ombrix_HRCSVParser_parseWithString_completion_(const OmbrixHRCSVParser* self,
                                                    const char* string,
                                                    OmbrixHeartRateSamplesCompletion completion,
                                                    void* context) {
  c::completingWith(completion, context, kTag,
                    [&] { self->parser.parse(c::textFrom(string), calling(completion, context)); });
}

void ombrix_HRCSVParser_parseWithStream_completion_(const OmbrixHRCSVParser* self,
                                                    OmbrixInputStream stream,
                                                    OmbrixHeartRateSamplesCompletion completion,
                                                    void* context) {
  c::completingWith(completion, context, kTag, [&] {
    self->parser.parse(std::make_shared<c::FunctionInputStream>(stream),
                       calling(completion, context));
  });
}

void ombrix_HRCSVParser_parseWithData_completion_(const OmbrixHRCSVParser* self,
                                                  const uint8_t* bytes, size_t length,
                                                  OmbrixHeartRateSamplesCompletion completion,
                                                  void* context) {
  const auto view = std::as_bytes(std::span(bytes, length));
  c::completingWith(completion, context, kTag, [&] {
    self->parser.parse(platform::Data(view.begin(), view.end()), calling(completion, context));
  });
}
