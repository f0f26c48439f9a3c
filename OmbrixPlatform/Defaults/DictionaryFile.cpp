#include "OmbrixPlatform/Defaults/Detail/DictionaryFile.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "OmbrixPlatform/Coding/PropertyListSerialization.hpp"
#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"
#include "OmbrixPlatform/Defaults/Detail/Coercion.hpp"
#include "OmbrixPlatform/Detail/MadeFile.hpp"
#include "OmbrixPlatform/Detail/Utf.hpp"
#include "OmbrixPlatform/Files/FileManager.hpp"
#include "OmbrixPlatform/Files/FileOwner.hpp"

namespace ombrix::platform {
namespace {

namespace fs = std::filesystem;
using detail::Descriptor;
using detail::kLockTimeout;

constexpr std::chrono::seconds kNoWait{0};
constexpr std::size_t kMaxBytes = std::size_t{16} << 20;
constexpr int kMaxLinks = 40;  // as the system allows in one path
constexpr int kMaxDamagedFiles = 9;

/// What the path of an expected regular file leads to.
std::string_view kindOf(mode_t mode) {
  if (S_ISDIR(mode)) return "a folder";
  if (S_ISFIFO(mode)) return "a FIFO";
  if (S_ISSOCK(mode)) return "a socket";
  return "a device";
}

/// All bytes of a regular file; empty, with errno, when they cannot be read or are too many.
std::optional<Data> readAll(int descriptor, std::size_t size) {
  Data bytes(std::min(size, kMaxBytes) + 1);
  std::size_t used = 0;
  while (true) {
    if (used == bytes.size()) bytes.resize(bytes.size() + 4096);
    const auto count = detail::readSome(descriptor, std::span(bytes).subspan(used));
    if (count < 0) return std::nullopt;
    if (count == 0) break;
    used += static_cast<std::size_t>(count);
    if (used > kMaxBytes) {
      errno = EFBIG;
      return std::nullopt;
    }
  }
  bytes.resize(used);
  return bytes;
}

std::optional<PropertyList::Dictionary> decode(DataView bytes) {
  try {
    auto list = PropertyListSerialization::read(bytes);
    if (auto* dictionary = list.dictionary()) return std::move(*dictionary);
  } catch (const PropertyListError&) {
  }
  return std::nullopt;
}

void apply(const DictionaryFile::Edit& edit, PropertyList::Dictionary& dictionary) {
  if (edit.value) {
    dictionary.set(edit.key, *edit.value);
  } else {
    dictionary.erase(edit.key);
  }
}

}  // namespace

DictionaryFile::DictionaryFile(fs::path file) : file_(file.string()) {}

fs::path DictionaryFile::target(fs::path file) {
  for (int i = 0; i < kMaxLinks; ++i) {
    std::error_code error;
    const auto next = fs::read_symlink(file, error);
    if (error) break;
    file = file.parent_path() / next;
  }
  return file;
}

void DictionaryFile::checkEncodable(std::string_view key, const PropertyList& value) {
  const auto* text = value.text();
  const bool isPlain = text != nullptr ? detail::isValidUtf8(*text)
                                       : value.boolean() || value.integer() || value.real();
  if (isPlain && detail::isValidUtf8(key)) return;
  PropertyList::Dictionary dictionary;
  dictionary.set(std::string(key), value);
  PropertyListSerialization::write(std::move(dictionary));
}

DictionaryFile::Outcome DictionaryFile::refresh(Look look) {
  Outcome outcome;
  if (look != Look::ifFree) {
    mutex_.lock();
  } else if (!mutex_.try_lock()) {
    outcome.wasBusy = true;
    return outcome;
  }
  const LockGuard mutex(mutex_, std::adopt_lock);
  const bool force = look == Look::inContents;
  if (load(force, outcome) == Loaded::damaged) {
    // Another process may be mending it: look again under the lock.
    const auto patience = look == Look::ifFree ? kNoWait : kLockTimeout;
    if (const auto locked = lock(patience, outcome)) loadLocked(force, outcome);
  }
  return outcome;
}

DictionaryFile::Outcome DictionaryFile::write(const std::vector<Edit>& edits) {
  Outcome outcome;  // with what was found before memory ran short: nobody else gets it
  try {
    update([&](const PropertyList::Dictionary&) { return edits; }, IfUnsaved::keep, outcome);
  } catch (const std::bad_alloc&) {
    outcome.isSaved = outcome.isTaken = false;
  }
  return outcome;
}

void DictionaryFile::update(const Decide& decide, IfUnsaved ifUnsaved, Outcome& outcome) {
  const LockGuard mutex(mutex_);
  const ThreadPool::BlockingScope blocking;
  const auto locked = lock(kLockTimeout, outcome);
  const auto loaded = locked ? loadLocked(false, outcome) : Loaded::unreadable;
  const auto edits = decide(contents_);
  for (const auto& [key, value] : edits) {
    if (value) checkEncodable(key, *value);
  }
  const auto met = outcome.changes.size();
  PropertyList::Dictionary before;
  if (ifUnsaved == IfUnsaved::undo) before = contents_;
  for (const Edit& edit : edits) change(edit, ifUnsaved, outcome);
  const bool hasChanged = outcome.changes.size() != met;
  if (!hasChanged && unsaved_.empty() && !isShowingUnsaved_) return;
  // A file that cannot be read is not replaced: others' values in it would be lost.
  outcome.isSaved = loaded != Loaded::unreadable;
  if (loaded == Loaded::empty) {
    outcome.errors.push_back(file_ + " was empty and is being written again");
  }
  if (outcome.isSaved) outcome.isSaved = save(outcome);
  if (outcome.isSaved || !hasChanged) return;
  if (ifUnsaved == IfUnsaved::show) isShowingUnsaved_ = true;
  if (ifUnsaved == IfUnsaved::undo) undo(std::move(before), met, outcome);
}

DictionaryFile::Contents DictionaryFile::contents() const {
  const LockGuard mutex(mutex_);
  return {contents_, sequence_};
}

bool DictionaryFile::isSaved() const {
  const LockGuard mutex(mutex_);
  return unsaved_.empty();
}

DictionaryFile::Identity DictionaryFile::identityOf(int descriptor) {
  struct stat status{};
  if (::fstat(descriptor, &status) != 0) return {};
  return {status.st_dev, status.st_ino, status.st_size, status.st_mtim.tv_sec,
          status.st_mtim.tv_nsec};
}

/// Reads the file if it is not the same as last time.
DictionaryFile::Loaded DictionaryFile::load(bool force, Outcome& outcome) {
  struct stat status{};
  if (::stat(file_.c_str(), &status) != 0) {
    if (errno != ENOENT && errno != ENOTDIR) {
      report(outcome, "read", errno);
      return Loaded::unreadable;
    }
    if (!identity_ && hasLooked_) return Loaded::same;
    open_.reset();
    identity_.reset();
    // Removing the file does not count as setting values.
    for (Unsaved& waiting : unsaved_) waiting.found.reset(), waiting.isFoundKnown = true;
    takeIn({}, outcome);
    return Loaded::read;
  }
  const Identity found{status.st_dev, status.st_ino, status.st_size, status.st_mtim.tv_sec,
                       status.st_mtim.tv_nsec};
  if (!force && identity_ == found) return Loaded::same;
  if (!S_ISREG(status.st_mode)) {
    outcome.errors.push_back("Cannot read " + file_ + ": it is " +
                             std::string(kindOf(status.st_mode)) + ", not a regular file");
    return Loaded::unreadable;
  }

  auto opened = detail::openFile(file_, O_RDONLY | O_NONBLOCK | O_NOCTTY);
  if (!opened && errno == ENOENT) return load(force, outcome);
  if (!opened) {
    report(outcome, "read", errno);
    return Loaded::unreadable;
  }
  const Identity identity = identityOf(opened.get());
  try {
    const auto bytes = readAll(opened.get(), static_cast<std::size_t>(identity.size));
    if (!bytes) {
      report(outcome, "read", errno);
      return Loaded::unreadable;
    }
    if (bytes->empty()) return Loaded::empty;
    auto contents = decode(*bytes);
    if (!contents) return Loaded::damaged;
    takeIn(std::move(*contents), outcome);
    open_ = std::move(opened);
    identity_ = identity;
    return Loaded::read;
  } catch (const std::bad_alloc&) {
    report(outcome, "read", ENOMEM);
    return Loaded::unreadable;
  }
}

/// The same with the lock held: a damaged file is set aside and replaced by this process's values.
DictionaryFile::Loaded DictionaryFile::loadLocked(bool force, Outcome& outcome) {
  const auto loaded = load(force, outcome);
  if (loaded != Loaded::damaged) return loaded;
  if (!setAside(outcome)) return Loaded::unreadable;
  open_.reset();
  identity_.reset();
  hasLooked_ = true;
  if (!contents_.empty()) save(outcome);
  return Loaded::read;
}

/// Takes over the file's contents, with the unsaved edits on top.
void DictionaryFile::takeIn(PropertyList::Dictionary contents, Outcome& outcome) {
  dropOverruled(contents);
  for (const Unsaved& waiting : unsaved_) apply(waiting.edit, contents);
  hasLooked_ = true;
  isShowingUnsaved_ = false;
  std::vector<Edit> differences;
  for (const auto& [key, value] : contents) {
    const auto* before = contents_.find(key);
    if (before == nullptr || *before != value) differences.push_back({key, value});
  }
  for (const auto& [key, value] : contents_) {
    if (!contents.contains(key)) differences.push_back({key, std::nullopt});
  }
  for (auto& [key, value] : differences) {
    outcome.changes.push_back({std::move(key), std::move(value), ++sequence_, true});
  }
  contents_ = std::move(contents);
}

/// Forgets the unsaved edits whose keys others have set since.
void DictionaryFile::dropOverruled(const PropertyList::Dictionary& contents) {
  const auto valueNow = [&](const Unsaved& waiting) {
    return detail::copyOf(contents.find(waiting.edit.key));
  };
  std::erase_if(unsaved_, [&](const Unsaved& waiting) {
    const auto now = valueNow(waiting);
    // The new contents may be in the file, although perhaps not on the disk yet.
    return waiting.isFoundKnown && now != waiting.found && now != waiting.edit.value;
  });
  for (Unsaved& waiting : unsaved_) waiting.found = valueNow(waiting), waiting.isFoundKnown = true;
}

void DictionaryFile::change(const Edit& edit, IfUnsaved ifUnsaved, Outcome& outcome) {
  const auto* before = contents_.find(edit.key);
  if (edit.value ? before != nullptr && *before == *edit.value : before == nullptr) return;
  if (ifUnsaved == IfUnsaved::keep) {
    const auto waiting = std::ranges::find_if(
        unsaved_, [&](const Unsaved& other) { return other.edit.key == edit.key; });
    if (waiting != unsaved_.end()) {
      waiting->edit = edit;
    } else {
      unsaved_.push_back({edit, detail::copyOf(before), hasLooked_});
    }
  }
  apply(edit, contents_);
  outcome.changes.push_back({edit.key, edit.value, ++sequence_, false});
}

/// Undoes edits; changes that were found before them stay.
void DictionaryFile::undo(PropertyList::Dictionary before, std::size_t met, Outcome& outcome) {
  contents_ = std::move(before);
  outcome.changes.erase(outcome.changes.begin() + static_cast<std::ptrdiff_t>(met),
                        outcome.changes.end());
}

/// Renames the damaged file to the first free name, so that nothing in it is lost.
bool DictionaryFile::setAside(Outcome& outcome) const {
  const std::string damaged = target(file_).string();
  for (int i = 1;; ++i) {
    const auto aside = damaged + ".damaged" + (i == 1 ? std::string() : "-" + std::to_string(i));
    const bool mayReplace = i == kMaxDamagedFiles;
    if (!mayReplace && fs::exists(aside)) continue;  // the lock keeps others from making it now
    if (::rename(damaged.c_str(), aside.c_str()) == 0) {
      outcome.errors.push_back(file_ + " is damaged and was set aside as " + aside);
      return true;
    }
    outcome.errors.push_back(file_ +
                             " is damaged and cannot be set aside: " + std::strerror(errno));
    return false;
  }
}

/// Writes the contents with the lock held; what fails stays unsaved.
bool DictionaryFile::save(Outcome& outcome) {
  const auto bytes = PropertyListSerialization::write(contents_);
  errno = EFBIG;  // a file that could not be read again is not written
  if (bytes.size() > kMaxBytes || !replaceFile(bytes)) {
    report(outcome, "write", errno);
    return false;
  }
  unsaved_.clear();
  isShowingUnsaved_ = false;
  return true;
}

/// Puts a new file in the old one's place, with its owner and mode. Where that owner cannot be
/// kept, the old file is overwritten instead: its owner must keep access.
bool DictionaryFile::replaceFile(DataView bytes) {
  const fs::path place = target(file_);
  detail::FreshFile fresh(place.string());
  if (!fresh) return false;
  struct stat old{};
  if (::stat(place.c_str(), &old) == 0 && !takeOwnerAndMode(fresh.get(), old)) {
    return overwriteFile(place, bytes);
  }
  if (const int error = fresh.publish(bytes); error != 0) {
    errno = error;
    return false;
  }
  isNow(fresh.release());
  return true;
}

/// Overwrites the file in place: a process that is killed meanwhile leaves a file that cannot be
/// decoded.
bool DictionaryFile::overwriteFile(const fs::path& place, DataView bytes) {
  const auto url = URL::fileURL(place.string(), false);
  const auto written = FileManager::defaultManager().overwriteFile(url, bytes);
  if (!written) {
    errno = written.error().code();
    return false;
  }
  auto file = detail::openFile(place.string(), O_RDONLY | O_NONBLOCK | O_NOCTTY);
  if (!file || ::fsync(file.get()) != 0) return false;
  isNow(std::move(file));
  return true;
}

/// Notes that this process now knows the contents of this file.
void DictionaryFile::isNow(Descriptor file) {
  identity_ = identityOf(file.get());
  open_ = std::move(file);
}

/// Takes the lock among processes; empty, with an error, when it cannot be had.
detail::HeldFileLock DictionaryFile::lock(std::chrono::steady_clock::duration timeout,
                                          Outcome& outcome) const {
  const fs::path path = detail::hiddenSibling(target(file_).string(), ".lock");
  // If the folder cannot be made, taking the lock reports the error.
  (void)FileManager::defaultManager().createDirectory(
      URL::fileURL(path.parent_path().string(), true), true);
  auto held = queue_.acquire(path.string(), timeout);
  const bool isAwaited = !held && errno == ETIMEDOUT && timeout == kNoWait;
  if (!held && !isAwaited)
    outcome.errors.push_back("Cannot lock " + file_ + ": " + std::strerror(errno));
  return held;
}

/// A thread that did not come along may have been changing this state, which may then be
/// incomplete: it is dropped, and the next look reads the file.
void DictionaryFile::enterChild() {
  const bool wasAtRest = mutex_.try_lock();
  if (wasAtRest && unsaved_.empty() && !isShowingUnsaved_) return mutex_.unlock();
  std::construct_at(&mutex_);
  std::construct_at(&unsaved_);
  if (!wasAtRest) {
    std::construct_at(&queue_);
    std::construct_at(&contents_);
    open_.release();
  }
  isShowingUnsaved_ = hasLooked_ = false;
  identity_.reset();
}

void DictionaryFile::report(Outcome& outcome, std::string_view action, int error) const {
  outcome.errors.push_back("Cannot " + std::string(action) + " " + file_ + ": " +
                           std::strerror(error));
}

}  // namespace ombrix::platform
