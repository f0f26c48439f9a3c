#include "OmbrixPlatform/Defaults/Detail/CloudMirror.hpp"

#include <algorithm>
#include <utility>

#include "OmbrixPlatform/Values/UUID.hpp"

namespace ombrix::platform::detail {
namespace {

// Entries of the file: a mark and the key.
constexpr char kValueMark = '=';
constexpr char kPendingMark = '+';

std::string marked(char mark, std::string_view key) { return mark + std::string(key); }

PropertyList::Dictionary pendingEntry(const std::optional<PropertyList>& value) {
  PropertyList::Dictionary entry{{"id", UUID::random().uuidString()}};
  if (value) entry.set("value", *value);
  return entry;
}

std::string idOf(const PropertyList& entry) {
  const PropertyList* id = entry.find("id");
  const std::string* text = id != nullptr ? id->text() : nullptr;
  return text != nullptr ? *text : std::string();
}

}  // namespace

CloudMirror::CloudMirror(const std::filesystem::path& file) : file_(file) {
  Outcome ignored;  // values that are there from the start are nobody's change
  refresh(ignored);
}

std::optional<PropertyList> CloudMirror::value(std::string_view key, Outcome& outcome) {
  const std::lock_guard lock(mutex_);
  refresh(outcome);
  const PropertyList* value = values_.find(key);
  if (value == nullptr) return std::nullopt;
  return *value;
}

PropertyList::Dictionary CloudMirror::values(Outcome& outcome) {
  const std::lock_guard lock(mutex_);
  refresh(outcome);
  return values_;
}

CloudMirror::Outcome CloudMirror::set(std::string_view key, std::optional<PropertyList> value) {
  const std::lock_guard lock(mutex_);
  Outcome outcome;
  write({{marked(kPendingMark, key), pendingEntry(value)},
         {marked(kValueMark, key), std::move(value)}},
        false, outcome);
  return outcome;
}

std::optional<CloudMirror::Pending> CloudMirror::nextPending() {
  const std::lock_guard lock(mutex_);
  if (pending_.empty()) return std::nullopt;
  const auto& [key, entry] = *pending_.begin();
  Pending pending{key, std::nullopt, idOf(entry)};
  if (const PropertyList* value = entry.find("value")) pending.value = *value;
  return pending;
}

bool CloudMirror::waits(const Pending& pending) const {
  const PropertyList* entry = pending_.find(pending.key);
  return entry != nullptr && idOf(*entry) == pending.id;
}

CloudMirror::Outcome CloudMirror::sent(const Pending& pending, std::int64_t revision) {
  const std::lock_guard lock(mutex_);
  Outcome outcome;
  auto& known = revisions_[pending.key];
  known = std::max(known, revision);
  // Changed again while it was sent: that change is still to come.
  if (!waits(pending)) return outcome;
  Edits edits = {{marked(kPendingMark, pending.key), std::nullopt}};
  if (const auto held = heldBack_.extract(pending.key)) {
    if (held.mapped().revision > revision) {
      edits.push_back({marked(kValueMark, pending.key), held.mapped().value});
    }
  }
  write(edits, true, outcome);
  return outcome;
}

CloudMirror::Outcome CloudMirror::refused(const Pending& pending) {
  const std::lock_guard lock(mutex_);
  Outcome outcome;
  if (waits(pending)) write({{marked(kPendingMark, pending.key), std::nullopt}}, true, outcome);
  return outcome;
}

CloudMirror::Outcome CloudMirror::take(const std::vector<EtcdKeyValue>& events) {
  const std::lock_guard lock(mutex_);
  Outcome outcome;
  Edits edits;
  for (const EtcdKeyValue& event : events) noteEvent(event, edits);
  write(edits, true, outcome);
  return outcome;
}

CloudMirror::Outcome CloudMirror::take(const EtcdSnapshot& snapshot) {
  const std::lock_guard lock(mutex_);
  Outcome outcome;
  refresh(outcome);
  if (snapshot.revision < serverRevision_) {
    revisions_.clear();
    heldBack_.clear();
  }
  serverRevision_ = snapshot.revision;
  Edits edits;
  PropertyList::Dictionary gone = values_;
  for (const EtcdKeyValue& value : snapshot.values) {
    noteEvent(value, edits);
    gone.erase(value.key);
  }
  for (const auto& [key, value] : gone) noteEvent({key, std::nullopt, snapshot.revision}, edits);
  write(edits, true, outcome);
  return outcome;
}

/// Turns what the server says of a key into an edit, unless something later is known or waits.
void CloudMirror::noteEvent(const EtcdKeyValue& event, Edits& edits) {
  auto& known = revisions_[event.key];
  if (event.revision < known) return;
  known = event.revision;
  if (pending_.contains(event.key)) {
    heldBack_.insert_or_assign(event.key, event);
  } else {
    edits.push_back({marked(kValueMark, event.key), event.value});
  }
}

void CloudMirror::refresh(Outcome& outcome) {
  apply(file_.refresh(DictionaryFile::Look::always), false, outcome);
}

void CloudMirror::write(const Edits& edits, bool isFromServer, Outcome& outcome) {
  if (!edits.empty()) apply(file_.write(edits), isFromServer, outcome);
}

void CloudMirror::apply(const DictionaryFile::Outcome& fileOutcome, bool isFromServer,
                        Outcome& outcome) {
  for (const auto& [markedKey, value, sequence, isExternal] : fileOutcome.changes) {
    if (markedKey.empty()) continue;
    auto& place = markedKey[0] == kPendingMark ? pending_ : values_;
    std::string key = markedKey.substr(1);
    if (value) {
      place.set(key, *value);
    } else {
      place.erase(key);
    }
    if (markedKey[0] == kValueMark && (isFromServer || isExternal)) {
      outcome.keys.push_back(std::move(key));
    }
  }
  outcome.errors.insert(outcome.errors.end(), fileOutcome.errors.begin(), fileOutcome.errors.end());
}

}  // namespace ombrix::platform::detail
