#include "OmbrixPlatform/Defaults/Etcd/Detail/EtcdMessages.hpp"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <utility>

#include "OmbrixPlatform/Coding/PropertyListSerialization.hpp"
#include "OmbrixPlatform/Defaults/Etcd/Detail/ChangeId.hpp"
#include "OmbrixPlatform/Detail/TextForms.hpp"
#include "OmbrixPlatform/Detail/Utf.hpp"

namespace ombrix::platform::detail {
namespace {

std::string base64(DataView bytes) {
  std::string text;
  appendBase64(text, bytes);
  return text;
}

/// The first key after all that begin with the prefix: the prefix without trailing 0xFF bytes, and
/// its last byte one higher. A prefix of 0xFF bytes alone has no such key, which is written "\0".
std::string endOf(std::string prefix) {
  while (!prefix.empty() && static_cast<unsigned char>(prefix.back()) == 0xFF) prefix.pop_back();
  if (prefix.empty()) return std::string(1, '\0');
  ++prefix.back();
  return prefix;
}

constexpr std::size_t kLongestErrorText = 200;
// Behind the prefix and before the device and the key: a value's key never begins so.
constexpr std::string_view kMark{"\0sent/", 6};

/// etcd's own texts, which tell refusals apart; the codes are gRPC's. One code has many meanings,
/// so the text decides where there is one.
EtcdError errorOf(std::int64_t code, std::string text) {
  using enum EtcdError::Kind;
  constexpr int kUnauthenticated = 16;
  struct Row {
    std::string_view part;
    EtcdError::Kind kind;
  };
  constexpr Row kRows[] = {
      // clang-format off
      {"request is too large",                tooLarge},
      {"received message larger than max",    tooLarge},
      {"user name is empty",                  wantsLogin},
      {"invalid auth token",                  wantsLogin},
      {"revision of auth store is old",       wantsLogin},
      {"authentication is not enabled",       authenticationIsOff},
      // clang-format on
  };
  for (const Row& row : kRows) {
    if (text.contains(row.part)) return {std::move(text), row.kind};
  }
  return {std::move(text), code == kUnauthenticated ? wantsLogin : other};
}

/// A server's text in a form that is safe for a log or a terminal.
std::string shown(std::string text) {
  text.resize(std::min(text.size(), kLongestErrorText));
  std::ranges::replace_if(text, [](char c) { return static_cast<unsigned char>(c) < ' '; }, ' ');
  return text;
}

std::int64_t integerOf(const JSON& json) {
  if (const auto integer = json.integer()) return *integer;
  const std::string* text = json.string();
  std::int64_t value = 0;
  if (text != nullptr) std::from_chars(text->data(), text->data() + text->size(), value);
  return value;
}

/// Room for the next one is left above each.
std::int64_t revisionOf(const JSON& json) {
  constexpr std::int64_t kLast = INT64_MAX / 2;
  const std::int64_t revision = integerOf(json);
  if (revision < 0 || revision > kLast) {
    throw JSONError("the server has counted to " + std::to_string(revision));
  }
  return revision;
}

}  // namespace

EtcdMessages::EtcdMessages(std::string prefix)
    : prefix_(std::move(prefix)),
      firstKey_(base64(bytesOf(prefix_.empty() ? std::string_view("\0", 1) : prefix_))),
      endKey_(base64(bytesOf(endOf(prefix_)))) {}

std::string EtcdMessages::coded(std::string_view key) const {
  return base64(bytesOf(prefix_ + std::string(key)));
}

JSON EtcdMessages::change(std::string_view key, const std::optional<PropertyList>& value,
                          std::string_view id, std::string_view device,
                          std::int64_t markRevision) const {
  std::string markKey = std::string(kMark).append(device);
  if (isTimed(id)) markKey.append("/").append(key);
  const std::string mark = coded(markKey);
  const JSON condition = JSON::Dictionary{{"key", mark},
                                          {"target", "MOD"},
                                          {"result", "EQUAL"},
                                          {"mod_revision", std::to_string(markRevision)}};
  JSON::Dictionary operation{{"key", coded(key)}};
  if (value) operation.set("value", base64(PropertyListSerialization::write(*value)));
  JSON::Array operations;
  operations.emplace_back(
      JSON::Dictionary{{value ? "request_put" : "request_delete_range", std::move(operation)}});
  operations.emplace_back(JSON::Dictionary{
      {"request_put", JSON::Dictionary{{"key", mark}, {"value", base64(bytesOf(id))}}}});
  JSON::Array reading;
  reading.emplace_back(JSON::Dictionary{{"request_range", JSON::Dictionary{{"key", mark}}}});
  JSON::Array conditions;
  conditions.push_back(condition);
  return JSON::Dictionary{{"compare", std::move(conditions)},
                          {"success", std::move(operations)},
                          {"failure", std::move(reading)}};
}

JSON EtcdMessages::range() const {
  JSON::Array ranges;
  const auto add = [&](JSON::Dictionary range) {
    ranges.emplace_back(JSON::Dictionary{{"request_range", std::move(range)}});
  };
  add({{"key", coded("\1")}, {"range_end", endKey_}});
  if (!prefix_.empty()) add({{"key", coded("")}});
  return JSON::Dictionary{{"success", std::move(ranges)}};
}

JSON EtcdMessages::watch(std::int64_t revision) const {
  return JSON::Dictionary{
      {"create_request", JSON::Dictionary{{"key", firstKey_},
                                          {"range_end", endKey_},
                                          {"start_revision", std::to_string(revision)},
                                          {"progress_notify", true}}}};
}

EtcdChangeResult EtcdMessages::changeResult(DataView answer, std::string_view id) {
  const JSON json = JSON::parse(answer);
  if (json["succeeded"].boolean().value_or(false)) {
    const std::int64_t revision = revisionOf(json["header"]["revision"]);
    return {revision, revision};
  }
  const JSON& mark = json["responses"][0]["response_range"]["kvs"][0];
  EtcdChangeResult result{std::nullopt, revisionOf(mark["mod_revision"])};
  const auto found = bytesFromBase64(mark["value"].stringValue(), false);
  if (found && textOf(*found) == id) result.revision = result.markRevision;
  result.isOvertaken = found && isLater(textOf(*found), id);
  return result;
}

EtcdSnapshot EtcdMessages::snapshot(DataView answer) const {
  const JSON json = JSON::parse(answer);
  EtcdSnapshot snapshot;
  snapshot.revision = revisionOf(json["header"]["revision"]);
  const auto* ranges = json["responses"].array();
  if (ranges == nullptr) return snapshot;
  for (const JSON& range : *ranges) {
    const auto* values = range["response_range"]["kvs"].array();
    if (values == nullptr) continue;
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
  message.revision = revisionOf(result["header"]["revision"]);
  if (!json["error"].isNull()) {
    message.ended = error(bytesOf(line));
  } else if (result["canceled"].boolean().value_or(false)) {
    message.ended =
        errorOf(0, "the server has ended the watch " + result["cancel_reason"].stringValue());
    if (integerOf(result["compact_revision"]) > 0) message.ended->kind = EtcdError::Kind::compacted;
  }
  if (const auto* events = result["events"].array()) {
    for (const JSON& event : *events) {
      const bool isRemoval = event["type"].stringValue() == "DELETE";
      if (auto read = keyValue(event["kv"], isRemoval)) message.events.push_back(std::move(*read));
    }
  }
  const bool isCreated = result["created"].boolean().value_or(false);
  message.isProgress = !message.ended && !isCreated && result["events"].isNull();
  return message;
}

EtcdError EtcdMessages::error(DataView answer) {
  try {
    const JSON json = JSON::parse(answer);
    const JSON& error = json["error"];
    // Before a stream begins the text is under "error", within a stream under "error.message".
    const JSON& details = error.dictionary() != nullptr ? error : json;
    const std::string text =
        error.dictionary() != nullptr ? error["message"].stringValue() : error.stringValue();
    const std::int64_t code =
        integerOf(details["code"].isNull() ? details["grpc_code"] : details["code"]);
    if (!text.empty()) return errorOf(code, shown(text));
  } catch (const JSONError&) {
  }
  return {};  // of unknown contents nothing is shown
}

std::optional<EtcdKeyValue> EtcdMessages::keyValue(const JSON& json, bool isRemoval) const {
  const auto key = bytesFromBase64(json["key"].stringValue(), false);
  if (!key || !textOf(*key).starts_with(prefix_)) return std::nullopt;
  EtcdKeyValue read{std::string(textOf(*key).substr(prefix_.size())), std::nullopt,
                    revisionOf(json["mod_revision"])};
  if (!isKey(read.key) || !isValidUtf8(read.key)) return std::nullopt;
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
