#include "OmbrixPlatform/Defaults/Etcd/Detail/CloudMirror.hpp"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "OmbrixPlatform/Coding/PropertyListSerialization.hpp"
#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"
#include "OmbrixPlatform/Defaults/Etcd/Detail/ChangeId.hpp"
#include "OmbrixPlatform/Values/UUID.hpp"

namespace ombrix::platform::detail {
namespace {

// Entries of the file: a mark and the key.
constexpr char kValueMark = '=';    // the value that is shown
constexpr char kPendingMark = '+';  // a change that waits: its id, value and order; what the server
                                    // has of the key: "server" and "revision"
constexpr char kSentMark = '@';  // the device's last change that the server took: id and revision
constexpr char kPositionMark = '#';  // without a key: epoch and revision of the values
constexpr char kDeviceMark = '~';    // without a key: the device's id, and the last order
constexpr char kFormerMark = '^';    // of the release before; of no use any more

// What was sent is of use until the news of it have come, and while another process has an older
// change of the key, which it could not leave here.
constexpr std::size_t kMostSent = 1000;

std::string marked(char mark, std::string_view key) { return mark + std::string(key); }

std::int64_t integerIn(const PropertyList& dictionary, std::string_view key) {
  const PropertyList* value = dictionary.find(key);
  return value != nullptr ? value->integer().value_or(0) : 0;
}

std::string textIn(const PropertyList& dictionary, std::string_view key) {
  const PropertyList* value = dictionary.find(key);
  const std::string* text = value != nullptr ? value->text() : nullptr;
  return text != nullptr ? *text : std::string();
}

std::optional<PropertyList> copyOf(const PropertyList* value) {
  return value != nullptr ? std::optional(*value) : std::nullopt;
}

CloudMirror::Pending pendingFrom(std::string key, const PropertyList& entry) {
  return {std::move(key), copyOf(entry.find("value")), textIn(entry, "id"),
          integerIn(entry, "order")};
}

/// An entry of the file that was read and changed and is to be written back.
class Entry {
 public:
  explicit Entry(const PropertyList* found) {
    if (found != nullptr && found->dictionary() != nullptr) list_ = *found;
  }
  void set(const std::string& field, std::optional<PropertyList> value) {
    if (value) {
      list_.dictionary()->set(field, *std::move(value));
    } else {
      list_.dictionary()->erase(field);
    }
  }
  [[nodiscard]] const PropertyList& list() const { return list_; }

 private:
  PropertyList list_;
};

/// One step: the file's entries with edits on top.
class Draft {
 public:
  explicit Draft(const PropertyList::Dictionary& contents) : contents_(contents) {}

  [[nodiscard]] const PropertyList* find(char mark, std::string_view key) const {
    const std::string entry = marked(mark, key);
    const auto edited = edits_.find(entry);
    if (edited == edits_.end()) return contents_.find(entry);
    return edited->second ? &*edited->second : nullptr;
  }
  void set(char mark, std::string_view key, std::optional<PropertyList> value) {
    edits_.insert_or_assign(marked(mark, key), std::move(value));
  }
  void erase(char mark, std::string_view key) { set(mark, key, std::nullopt); }

  /// The keys of all entries with that mark.
  [[nodiscard]] std::set<std::string> keys(char mark) const {
    std::set<std::string> keys;
    for (const auto& [entry, value] : contents_) {
      if (entry.starts_with(mark)) keys.insert(entry.substr(1));
    }
    return keys;
  }

  /// The position that the values reach.
  [[nodiscard]] std::int64_t epoch() const { return positionField("epoch"); }
  [[nodiscard]] std::int64_t revision() const { return positionField("revision"); }
  void setPosition(std::int64_t epoch, std::int64_t revision) {
    set(kPositionMark, "",
        PropertyList(PropertyList::Dictionary{{"epoch", epoch}, {"revision", revision}}));
  }

  /// Leaves a change of this device to be sent, after all that waits already.
  void leave(std::string_view key, const std::string& id, std::optional<PropertyList> value) {
    nameDevice();
    Entry device(find(kDeviceMark, ""));
    const std::int64_t order = integerIn(device.list(), "order") + 1;
    device.set("order", order);
    set(kDeviceMark, "", device.list());
    const PropertyList* waiting = find(kPendingMark, key);
    Entry entry(waiting);
    if (waiting == nullptr) {
      entry.set("revision", revision());
      entry.set("server", copyOf(find(kValueMark, key)));
    }
    entry.set("id", id);
    entry.set("order", order);
    entry.set("value", value);
    set(kPendingMark, key, entry.list());
    set(kValueMark, key, std::move(value));
  }

  /// Whether the device has made a later change of a key, which waits here or was sent.
  [[nodiscard]] bool isOvertaken(std::string_view key, std::string_view id) const {
    const auto hasLater = [&](char mark) {
      const PropertyList* entry = find(mark, key);
      return entry != nullptr && isLater(textIn(*entry, "id"), id);
    };
    return hasLater(kPendingMark) || hasLater(kSentMark);
  }

  /// Notes that the server has taken a change of this device at a revision.
  void noteSent(std::string_view key, const std::string& id, std::int64_t revision) {
    if (sentRevision(key) >= revision) return;
    set(kSentMark, key, PropertyList(PropertyList::Dictionary{{"id", id}, {"revision", revision}}));
    const auto known = keys(kSentMark);
    if (known.size() < kMostSent) return;
    erase(kSentMark, *std::ranges::min_element(
                         known, {}, [this](const auto& other) { return sentRevision(other); }));
  }

  /// Gives the device its name on the server, if it has none.
  void nameDevice() {
    Entry device(find(kDeviceMark, ""));
    if (!textIn(device.list(), "id").empty()) return;
    device.set("id", UUID::random().uuidString());
    set(kDeviceMark, "", device.list());
  }

  /// Takes in the server's state of a key at a revision.
  void noteServer(std::string_view key, std::int64_t revision, std::optional<PropertyList> value) {
    if (const PropertyList* waiting = find(kPendingMark, key)) {
      if (integerIn(*waiting, "revision") > revision) return;
      Entry entry(waiting);
      entry.set("revision", revision);
      entry.set("server", std::move(value));
      return set(kPendingMark, key, entry.list());
    }
    // Of the device's own changes the news are still to come.
    if (const auto sent = sentRevision(key); sent > revision && sent > this->revision()) return;
    set(kValueMark, key, std::move(value));
  }

  [[nodiscard]] std::vector<DictionaryFile::Edit> edits() && {
    std::vector<DictionaryFile::Edit> edits;
    for (auto& [entry, value] : edits_) edits.push_back({entry, std::move(value)});
    return edits;
  }

 private:
  [[nodiscard]] std::int64_t positionField(std::string_view field) const {
    const PropertyList* position = find(kPositionMark, "");
    return position != nullptr ? integerIn(*position, field) : 0;
  }

  /// 0 for none that is known. The release before kept the revision alone.
  [[nodiscard]] std::int64_t sentRevision(std::string_view key) const {
    const PropertyList* sent = find(kSentMark, key);
    if (sent == nullptr) return 0;
    return sent->integer().value_or(integerIn(*sent, "revision"));
  }

  const PropertyList::Dictionary& contents_;
  std::map<std::string, std::optional<PropertyList>> edits_;
};

}  // namespace

CloudMirror::CloudMirror(const std::filesystem::path& file) : file_(file) {
  // Values that were there from the start do not count as changes.
  static_cast<void>(refresh());
}

/// Runs a step that drafts edits of the file, with the file's lock held; returns the outcome,
/// values from elsewhere included.
template <class Step>
CloudMirror::Outcome CloudMirror::update(IfUnsaved ifUnsaved, Source source, Step step) {
  const auto decide = [&](const PropertyList::Dictionary& contents) {
    Draft draft(contents);
    step(draft);
    return std::move(draft).edits();
  };
  Outcome outcome;
  try {
    const auto fileOutcome = file_.update(decide, ifUnsaved);
    const LockGuard lock(mutex_);
    apply(fileOutcome, source, outcome);
  } catch (const PropertyListError& error) {
    outcome.errors.emplace_back(error.what());
    outcome.isSaved = false;
  }
  return outcome;
}

CloudMirror::Outcome CloudMirror::refresh() {
  const LockGuard working(fileMutex_);
  Outcome outcome;
  look(DictionaryFile::Look::always, outcome);
  return outcome;
}

std::optional<PropertyList> CloudMirror::value(std::string_view key, Outcome& outcome) {
  lookIfFree(outcome);
  const LockGuard lock(mutex_);
  const auto unwritten = findUnwritten(key);
  return unwritten != unwritten_.end() ? unwritten->value : copyOf(values_.find(key));
}

PropertyList::Dictionary CloudMirror::values(Outcome& outcome) {
  lookIfFree(outcome);
  const LockGuard lock(mutex_);
  auto values = values_;
  for (const Unwritten& change : unwritten_) {
    if (change.value) {
      values.set(change.key, *change.value);
    } else {
      values.erase(change.key);
    }
  }
  return values;
}

void CloudMirror::set(std::string_view key, std::optional<PropertyList> value) {
  Unwritten change{std::string(key), std::move(value), {}};
  DictionaryFile::checkEncodable(change.key, change.value.value_or(PropertyList()));
  const LockGuard lock(mutex_);
  change.id = makeChangeId();  // in the order in which they are shown
  std::erase_if(unwritten_, [&](const Unwritten& other) { return other.key == key; });
  unwritten_.push_back(std::move(change));
}

CloudMirror::Outcome CloudMirror::flush() {
  const ThreadPool::BlockingScope blocking;
  const LockGuard working(fileMutex_);
  std::vector<Unwritten> batch;
  {
    const LockGuard lock(mutex_);
    batch = unwritten_;
  }
  if (batch.empty()) return {};
  std::set<std::string> left, overtaken;  // by their ids
  auto outcome = update(IfUnsaved::undo, Source::here, [&](Draft& draft) {
    for (Unwritten& change : batch) {
      const bool isOvertaken = draft.isOvertaken(change.key, change.id);
      (isOvertaken ? overtaken : left).insert(change.id);
      if (!isOvertaken) draft.leave(change.key, change.id, std::move(change.value));
    }
  });
  const LockGuard lock(mutex_);
  isStuck_ = !outcome.isSaved;
  std::erase_if(unwritten_, [&](const Unwritten& change) {
    if (overtaken.contains(change.id)) outcome.keys.push_back(change.key);
    return overtaken.contains(change.id) || (outcome.isSaved && left.contains(change.id));
  });
  return outcome;
}

bool CloudMirror::isFlushed() const {
  const LockGuard lock(mutex_);
  return unwritten_.empty();
}

std::optional<CloudMirror::Pending> CloudMirror::nextPending() const {
  const LockGuard lock(mutex_);
  const auto first = std::ranges::min_element(
      pending_, {}, [](const auto& entry) { return integerIn(entry.value, "order"); });
  if (first != pending_.end()) return pendingFrom(first->key, first->value);
  if (!isStuck_ || unwritten_.empty()) return std::nullopt;
  const Unwritten& change = unwritten_.front();
  return Pending{change.key, change.value, change.id, integerIn(device_, "order") + 1};
}

std::int64_t CloudMirror::lastOrder() const {
  const LockGuard lock(mutex_);
  return integerIn(device_, "order");
}

CloudMirror::Position CloudMirror::position() const {
  const LockGuard lock(mutex_);
  return {integerIn(position_, "epoch"), integerIn(position_, "revision")};
}

std::string CloudMirror::deviceIdentifier(Outcome& outcome) {
  const auto known = [this] {
    const LockGuard lock(mutex_);
    return textIn(device_, "id");
  };
  if (auto id = known(); !id.empty()) return id;
  const LockGuard working(fileMutex_);
  outcome = update(IfUnsaved::undo, Source::here, [](Draft& draft) { draft.nameDevice(); });
  return known();
}

CloudMirror::Outcome CloudMirror::sent(const Pending& pending, std::int64_t revision) {
  const LockGuard working(fileMutex_);
  bool isUnwritten = false;
  {
    const LockGuard lock(mutex_);
    isUnwritten = std::ranges::find(unwritten_, pending.id, &Unwritten::id) != unwritten_.end();
  }
  auto outcome = update(IfUnsaved::show, Source::server, [&](Draft& draft) {
    const PropertyList* entry = draft.find(kPendingMark, pending.key);
    draft.noteSent(pending.key, pending.id, revision);
    if (entry != nullptr && textIn(*entry, "id") == pending.id) {
      if (integerIn(*entry, "revision") > revision) {
        draft.set(kValueMark, pending.key, copyOf(entry->find("server")));
      }
      draft.erase(kPendingMark, pending.key);
    } else if (entry != nullptr || (isUnwritten && draft.revision() < revision)) {
      // Another change of the key waits, or none was left here.
      draft.noteServer(pending.key, revision, pending.value);
    }
  });
  const LockGuard lock(mutex_);
  std::erase_if(unwritten_, [&](const Unwritten& change) { return change.id == pending.id; });
  return outcome;
}

CloudMirror::Outcome CloudMirror::withdrawn(const Pending& pending) {
  const LockGuard working(fileMutex_);
  {
    const LockGuard lock(mutex_);
    const auto removed =
        std::erase_if(unwritten_, [&](const Unwritten& change) { return change.id == pending.id; });
    if (removed > 0) return {.keys = {pending.key}};
  }
  return update(IfUnsaved::show, Source::server, [&](Draft& draft) {
    const PropertyList* entry = draft.find(kPendingMark, pending.key);
    if (entry == nullptr || textIn(*entry, "id") != pending.id) return;
    draft.set(kValueMark, pending.key, copyOf(entry->find("server")));
    draft.erase(kPendingMark, pending.key);
  });
}

CloudMirror::Outcome CloudMirror::take(const std::vector<EtcdKeyValue>& events,
                                       std::int64_t epoch) {
  const LockGuard working(fileMutex_);
  return update(IfUnsaved::show, Source::server, [&](Draft& draft) {
    const std::int64_t known = draft.revision();
    if (draft.epoch() != epoch) return;
    std::int64_t last = known;
    for (const EtcdKeyValue& event : events) {
      if (event.revision <= known) continue;
      last = std::max(last, event.revision);
      draft.noteServer(event.key, event.revision, event.value);
    }
    if (last > known) draft.setPosition(epoch, last);
  });
}

CloudMirror::Outcome CloudMirror::take(const EtcdSnapshot& snapshot, Position asked) {
  const LockGuard working(fileMutex_);
  return update(IfUnsaved::show, Source::server, [&](Draft& draft) {
    if (draft.epoch() != asked.epoch) return;
    const bool isMadeAnew = snapshot.revision < asked.revision;
    if (isMadeAnew) {
      for (const auto& key : draft.keys(kSentMark)) draft.erase(kSentMark, key);
      for (const auto& key : draft.keys(kPendingMark)) {
        Entry entry(draft.find(kPendingMark, key));
        entry.set("revision", 0);
        draft.set(kPendingMark, key, entry.list());
      }
    } else if (snapshot.revision < draft.revision()) {
      return;  // Another process has later news by now.
    }
    for (const auto& key : draft.keys(kFormerMark)) draft.erase(kFormerMark, key);
    draft.setPosition(asked.epoch + (isMadeAnew ? 1 : 0), snapshot.revision);
    auto gone = draft.keys(kValueMark);
    gone.merge(draft.keys(kPendingMark));
    for (const EtcdKeyValue& value : snapshot.values) {
      draft.noteServer(value.key, value.revision, value.value);
      gone.erase(value.key);
    }
    for (const auto& key : gone) draft.noteServer(key, snapshot.revision, std::nullopt);
  });
}

/// Takes in what others have written, unless this process is using the file: then a look would have
/// to wait, and the news is shown a moment later.
void CloudMirror::lookIfFree(Outcome& outcome) {
  if (!fileMutex_.try_lock()) return;
  const LockGuard working(fileMutex_, std::adopt_lock);
  look(DictionaryFile::Look::ifFree, outcome);
}

void CloudMirror::look(DictionaryFile::Look how, Outcome& outcome) {
  const auto fileOutcome = file_.refresh(how);
  const LockGuard lock(mutex_);
  apply(fileOutcome, Source::here, outcome);
}

std::vector<CloudMirror::Unwritten>::const_iterator CloudMirror::findUnwritten(
    std::string_view key) const {
  return std::ranges::find(unwritten_, key, &Unwritten::key);
}

void CloudMirror::apply(const DictionaryFile::Outcome& fileOutcome, Source source,
                        Outcome& outcome) {
  for (const auto& [entry, value, sequence, isExternal] : fileOutcome.changes) {
    if (entry.starts_with(kPositionMark)) position_ = value.value_or(PropertyList());
    if (entry.starts_with(kDeviceMark)) device_ = value.value_or(PropertyList());
    if (!entry.starts_with(kValueMark) && !entry.starts_with(kPendingMark)) continue;
    auto& place = entry[0] == kPendingMark ? pending_ : values_;
    std::string key = entry.substr(1);
    if (value) {
      place.set(key, *value);
    } else {
      place.erase(key);
    }
    if (entry[0] != kValueMark || (source == Source::here && !isExternal)) continue;
    if (findUnwritten(key) != unwritten_.end()) continue;
    if (std::ranges::find(outcome.keys, key) == outcome.keys.end()) {
      outcome.keys.push_back(std::move(key));
    }
  }
  outcome.isSaved = fileOutcome.isSaved;
  outcome.errors.insert(outcome.errors.end(), fileOutcome.errors.begin(), fileOutcome.errors.end());
}

}  // namespace ombrix::platform::detail
