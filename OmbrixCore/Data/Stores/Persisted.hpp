#pragma once

#include <functional>
#include <memory>
#include <string_view>
#include <utility>

#include "OmbrixCore/Data/Stores/CachedItemStore.hpp"

namespace ombrix {

/// A property that is kept on disk: a thin layer over one `CachedItemStore`. Copies share the
/// store.
///
///     Persisted<int> launches{0, FileManager::defaultManager().applicationSupport(), "launches"};
///     launches.modifyWrappedValue([](int& count) { ++count; });
///
/// The first `wrappedValue` reads the file (if that fails, the next one does): a subscriber that
/// comes earlier begins with the default, and gets the loaded value when the file is read. Setting
/// changes the value in memory at once and the file in the background; `flush` waits for that, and
/// so does a normal end of the process. A value that is set before the first read is written, but
/// that read still takes the file's value of the moment, old or new.
///
/// Two properties made for the same file are two stores: each loads the file once, and neither sees
/// values that the other sets later. It is itself a publisher of its values. Any thread.
template <class T>
class Persisted final : public platform::PublisherOperators<Persisted<T>, T, platform::Never> {
 public:
  /// @param wrappedValue The default, until something is stored.
  /// @param directory The folder of the file; made on the first write.
  /// @param name The file's name.
  Persisted(T wrappedValue, const platform::URL& directory, std::string_view name)
      : store_(directory.appendingPathComponent(name, false), std::move(wrappedValue)) {}

  [[nodiscard]] T wrappedValue() const { return store_.value(); }
  void setWrappedValue(T value) const { store_.setValue(std::move(value)); }

  /// Waits until what was set before is on the disk, or its failure in the log.
  void flush() const { store_.flush(); }

  /// Lets the closure change a copy of the value and sets it then, also when the closure throws.
  /// Changes that others make meanwhile are lost. If the file could not be read (the log says so),
  /// the copy is the default, and the changed copy replaces the file.
  template <class Closure>
  void modifyWrappedValue(Closure&& closure) const {
    T value = wrappedValue();
    try {
      std::invoke(std::forward<Closure>(closure), value);
    } catch (...) {
      setWrappedValue(std::move(value));
      throw;
    }
    setWrappedValue(std::move(value));
  }

  /// The property's values, beginning with the current one, which is the default until the first
  /// read.
  [[nodiscard]] platform::AnyPublisher<T, platform::Never> projectedValue() const {
    return store_.eraseToAnyPublisher();
  }

  void receive(std::shared_ptr<platform::Subscriber<T, platform::Never>> subscriber) const {
    store_.receive(std::move(subscriber));
  }

 private:
  CachedItemStore<T> store_;
};

}  // namespace ombrix
