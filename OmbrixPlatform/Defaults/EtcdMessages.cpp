#include "OmbrixPlatform/Defaults/Detail/EtcdMessages.hpp"

#include <charconv>
#include <utility>

#include "OmbrixPlatform/Coding/Detail/TextForms.hpp"
#include "OmbrixPlatform/Coding/PropertyListSerialization.hpp"

namespace ombrix::platform::detail {
namespace {

std::string base64(DataView bytes) {
  std::string text;
  appendBase64(text, bytes);
  return text;
}

/// The first key behind all that begin with the prefix: its last byte one higher, bytes that
/// cannot be higher dropped. A prefix of such bytes alone has no end, which is written "\0".
std::string endOf(std::string prefix) {
  while (!prefix.empty() && static_cast<unsigned char>(prefix.back()) == 0xFF) prefix.pop_back();
  if (prefix.empty()) return std::string(1, '\0');
  ++prefix.back();
  return prefix;
}

std::int64_t integerOf(const JSON& json) {
  if (const auto integer = json.integer()) return *integer;
  const std::string* text = json.string();
  std::int64_t value = 0;
  if (text != nullptr) std::from_chars(text->data(), text->data() + text->size(), value);
  return value;
}

}  // namespace

EtcdMessages::EtcdMessages(std::string prefix)
    : prefix_(std::move(prefix)),
      firstKey_(base64(bytesOf(prefix_.empty() ? std::string_view("\0", 1) : prefix_))),
      endKey_(base64(bytesOf(endOf(prefix_)))) {}

std::string EtcdMessages::coded(std::string_view key) const {
  return base64(bytesOf(prefix_ + std::string(key)));
}

JSON EtcdMessages::put(std::string_view key, const PropertyList& value) const {
  return JSON::Dictionary{{"key", coded(key)},
                          {"value", base64(PropertyListSerialization::write(value))}};
}

JSON EtcdMessages::remove(std::string_view key) const {
  return JSON::Dictionary{{"key", coded(key)}};
}

JSON EtcdMessages::range() const {
  return JSON::Dictionary{{"key", firstKey_}, {"range_end", endKey_}};
}

JSON EtcdMessages::watch(std::int64_t revision) const {
  return JSON::Dictionary{
      {"create_request", JSON::Dictionary{{"key", firstKey_},
                                          {"range_end", endKey_},
                                          {"start_revision", std::to_string(revision)},
                                          {"progress_notify", true}}}};
}

std::int64_t EtcdMessages::revision(DataView answer) {
  return integerOf(JSON::parse(answer)["header"]["revision"]);
}

EtcdSnapshot EtcdMessages::snapshot(DataView answer) const {
  const JSON json = JSON::parse(answer);
  EtcdSnapshot snapshot;
  snapshot.revision = integerOf(json["header"]["revision"]);
  if (const auto* values = json["kvs"].array()) {
    for (const JSON& value : *values) {
      if (auto read = keyValue(value, false)) snapshot.values.push_back(std::move(*read));
    }
  }
  return snapshot;
}

EtcdWatchMessage EtcdMessages::watchMessage(std::string_view line) const {
  const JSON json = JSON::parse(line);
  EtcdWatchMessage message;
  const JSON& result = json["result"];
  if (!json["error"].isNull()) {
    message.ended = errorMessage(bytesOf(line));
  } else if (result["canceled"].boolean().value_or(false)) {
    message.ended = "the server has ended the watch " + result["cancel_reason"].stringValue();
  }
  if (const auto* events = result["events"].array()) {
    for (const JSON& event : *events) {
      const bool isRemoval = event["type"].stringValue() == "DELETE";
      if (auto read = keyValue(event["kv"], isRemoval)) message.events.push_back(std::move(*read));
    }
  }
  return message;
}

std::string EtcdMessages::errorMessage(DataView answer) {
  try {
    const JSON json = JSON::parse(answer);
    const JSON& error = json["error"];
    // Before a stream begins the text stands under "error", within one under "error.message".
    const std::string text =
        error.dictionary() != nullptr ? error["message"].stringValue() : error.stringValue();
    if (!text.empty()) return text;
  } catch (const JSONError&) {
  }
  return std::string(textOf(answer));
}

std::optional<EtcdKeyValue> EtcdMessages::keyValue(const JSON& json, bool isRemoval) const {
  const auto key = bytesFromBase64(json["key"].stringValue(), false);
  if (!key || !textOf(*key).starts_with(prefix_)) return std::nullopt;
  EtcdKeyValue read{std::string(textOf(*key).substr(prefix_.size())), std::nullopt,
                    integerOf(json["mod_revision"])};
  if (isRemoval) return read;
  const auto bytes = bytesFromBase64(json["value"].stringValue(), false);
  if (!bytes) return std::nullopt;
  try {
    read.value = PropertyListSerialization::read(*bytes);
  } catch (const PropertyListError&) {
    return std::nullopt;
  }
  return read;
}

}  // namespace ombrix::platform::detail
