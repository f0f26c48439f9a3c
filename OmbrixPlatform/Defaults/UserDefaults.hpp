#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixPlatform/Coding/PropertyList.hpp"
#include "OmbrixPlatform/Observation/KeyValueObserving.hpp"

namespace ombrix::platform {

/// Settings by key in one file per domain, shared with every process that uses the domain.
///
/// A key is looked up in three domains, the first that has it wins: the arguments (of this run),
/// the application domain (the file), the registered defaults (of this run). Nothing is read,
/// written or started before it is needed; the watch on the file starts with the first observer.
///
/// Readers get a new value at once. The object's own thread writes it to the file, together with
/// all others of that moment, within 50 ms unless the disk or other processes delay it.
/// `synchronize` and the end of the process (`exit`, the return of `main`, the last reference) wait
/// for that. A value that cannot be written (no space, no permission) is kept, and tried again with
/// the next change and from time to time.
///
/// The file is a property list; it is changed under a lock and replaced by renaming, so processes
/// lose none of each other's changes, none reads half a file, and one that is killed leaves the
/// file as it was before or after the change. When two processes set one key at the same time, the
/// value that reaches the file last wins in both. A symbolic link stays one. Without a watch each
/// read checks whether the file was replaced; with a watch no read needs to.
///
/// Observing (see `KeyValueObserving`): each change of a stored value, by this process or another,
/// reaches the observers of its key once, as one prior call, if asked for, and one call after. This
/// process's changes are announced on the thread that makes them, before the setter returns; those
/// of others on the object's own queue, where changes that follow each other closely may appear as
/// one. Observers are told the values that a reader gets. Setting a value that is stored already is
/// not a change; registering defaults and setting arguments announce nothing.
///
/// Any thread, all operations.
///
///     auto& defaults = UserDefaults::standardUserDefaults();
///     defaults.setObject("miles", "units");
///     const auto units = defaults.stringForKey("units");
class UserDefaults final : public KeyValueObserving<PropertyList> {
  struct Passkey {};

 public:
  using Dictionary = PropertyList::Dictionary;
  using ErrorHandler = std::function<void(const std::string& message)>;

  struct Configuration {
    /// Made when the first value is written.
    std::filesystem::path folder;
    /// Names the file, "<domain>.plist"; it must not be empty or a path.
    std::string domain;
    /// See `setErrorHandler`.
    ErrorHandler onError = {};
  };

  /// Throws `Error` when the domain is not a file name.
  static std::shared_ptr<UserDefaults> make(Configuration configuration);

  /// The defaults of the process, from the service in `services().standardDefaults`.
  static UserDefaults& standardUserDefaults();

  UserDefaults(Passkey, Configuration configuration);
  ~UserDefaults() override;

  /// @name Reading: the value of the first domain that has the key, or nothing. Numbers, truth
  /// values and texts are converted to each other: a text is true when it begins with "Y", "y",
  /// "T", "t" or a digit other than 0 (after blanks, a sign and zeros), and is the number that it
  /// begins with, 0 if none; a real becomes an integer by truncation, held at the limits; a truth
  /// value is 1 or 0. What cannot be converted is false, 0 or nothing. @{
  [[nodiscard]] std::optional<PropertyList> objectForKey(std::string_view key) const;
  [[nodiscard]] bool boolForKey(std::string_view key) const;
  [[nodiscard]] std::int64_t integerForKey(std::string_view key) const;
  [[nodiscard]] double doubleForKey(std::string_view key) const;
  [[nodiscard]] std::optional<std::string> stringForKey(std::string_view key) const;
  [[nodiscard]] std::optional<Data> dataForKey(std::string_view key) const;
  [[nodiscard]] std::optional<PropertyList::Array> arrayForKey(std::string_view key) const;
  [[nodiscard]] std::optional<Dictionary> dictionaryForKey(std::string_view key) const;
  /// Empty unless every element is a text.
  [[nodiscard]] std::optional<std::vector<std::string>> stringArrayForKey(
      std::string_view key) const;
  /// @}

  /// The value that was set, as opposed to a registered default.
  [[nodiscard]] std::optional<PropertyList> explicitObjectForKey(std::string_view key) const;

  /// All values that a reader can get.
  [[nodiscard]] Dictionary dictionaryRepresentation() const;

  /// The application domain alone.
  [[nodiscard]] Dictionary persistentDomain() const;

  /// @name Writing, to the application domain. Returns at once; the file is written later. Throws
  /// `PropertyListError`, without changing anything, for values that no property list can hold,
  /// such as text that is not UTF-8. @{
  void setObject(PropertyList value, std::string_view key);
  void removeObjectForKey(std::string_view key);
  /// @}

  /// Writes all new values to the file and reads those that others have written; returns whether
  /// every value that was set is in the file now. Blocks until it is on the disk, for 20 seconds at
  /// most where another process holds the file; so does the end of the process.
  bool synchronize();

  /// Sets the handler that gets failures of the file (damaged, not readable, not writable) as
  /// readable sentences, on the thread that meets them; the same sentence comes at most once a
  /// minute. Without a handler they go to the log, or to standard error while the log has no
  /// loggers. A configured handler stays.
  void setErrorHandler(ErrorHandler handler);

  /// Adds values for keys that no other domain has; of equal keys the last one counts.
  void registerDefaults(const Dictionary& defaults);

  /// Replaces the argument domain.
  void setArguments(Dictionary arguments);

  /// The argument domain of a command line: each "-key value"; a value may begin with "-" only
  /// when it is a number. Values are texts.
  static Dictionary argumentsFrom(std::span<const char* const> commandLine);

  /// Calls the handler with the keys that another process has changed, after their observers, until
  /// the token ends; starts the watch.
  ObservationToken observeExternalChanges(
      std::move_only_function<void(const std::vector<std::string>& keys)> handler);

  /// A number that changes whenever any value changes that a reader can get, and that no other
  /// `UserDefaults` of the process ever has. It lets callers cache what they have read.
  [[nodiscard]] std::uint64_t revision() const;

  /// The file of the application domain.
  [[nodiscard]] const std::filesystem::path& file() const;

 protected:
  std::optional<PropertyList> valueForKey(std::string_view key) const override;
  void willObserve(std::string_view key) override;

 private:
  struct State;
  const std::shared_ptr<State> state_;
};

/// The defaults in the user's configuration folder, in the domain of the main bundle.
std::shared_ptr<UserDefaults> makeStandardUserDefaults();

}  // namespace ombrix::platform
