#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>
#include <utility>

#include "OmbrixCore/Concurrency/DispatchOnce.hpp"
#include "OmbrixCore/Data/Stores/BackgroundWriter.hpp"
#include "OmbrixCore/Data/Stores/PlistFileStore.hpp"
#include "OmbrixCore/Data/Stores/PresenterWrapper.hpp"
#include "OmbrixPlatform/Concurrency/Process.hpp"
#include "OmbrixPlatform/Publishers/AnyPublisher.hpp"
#include "OmbrixPlatform/Publishers/Subject.hpp"

namespace ombrix {

/// A value in memory, loaded from its file on the first read, published to subscribers, and written
/// back in the background. Copies share one store.
///
/// The value is the default until something is stored or loaded, and after a purge. The file is
/// read once in the store's life; later writes by others are not seen. A read that fails
/// (permissions, descriptors or memory are lacking, the disk or another process does not answer)
/// gives the default, and the next call repeats it unless a value was set or purged by then. A file
/// that does not decode is deleted, as in `PlistFileStore`, and the value is the default. Any
/// thread.
///
/// To be told of others' writes, register `filePresenter()` with
/// `platform::NSFileCoordinator::addFilePresenter`.
template <class T>
class CachedItemStore final
    : public platform::PublisherOperators<CachedItemStore<T>, T, platform::Never> {
 public:
  using StoredItem = T;

  CachedItemStore() = delete;  // there is no store without a file and a default
  CachedItemStore(const platform::URL& url, T defaultValue)
      : state_(std::make_shared<State>(url, std::move(defaultValue))) {
    if (detail::isInGroupContainer(url)) {
      state_->backingPlistStore->backingDiskStore().setFilePresenter(
          std::make_shared<detail::PresenterWrapper>(state_));
    }
  }

  /// The value. The first call reads the file, and others that come meanwhile wait for it.
  ///
  /// That first load publishes the value before it ends. A subscriber must not call this from
  /// inside the load, which would wait for itself, and must not throw there: that ends the program.
  [[nodiscard]] T value() const { return state_->value(); }

  /// Publishes the value on the calling thread before it returns; the thread pool writes it to the
  /// file later, see `flush`. Of writes in quick succession the last one stays, on the disk as in
  /// memory. A normal end of the process writes waiting values first; a killed process does not.
  // Kept: a value that is set before the first read does not count as loaded: that read takes the
  // file's value if it decodes. Counting it would make the outcome depend on who came first.
  void setValue(T value) const {
    std::uint64_t place = 0;
    state_->isSet = true;
    state_->innerSubject.setValue(value, [&] { place = state_->writer->nextPlace(); });
    state_->writer->makeLater(place, [store = state_->backingPlistStore, value = std::move(value)] {
      store->setValue(value);
    });
  }

  /// Waits until the values set before are on the disk, or their failure is in the log.
  void flush() const { state_->writer->flush(); }

  [[nodiscard]] bool exists() const { return state_->backingPlistStore->exists(); }
  [[nodiscard]] std::uint64_t size() const { return state_->backingPlistStore->size(); }

  /// Publishes the default value again, and removes the file before it returns; values set before
  /// and not written yet are never written.
  // Kept: the file is not read again after a purge, also when others write it again; loading twice
  // would bring back a value that subscribers saw go.
  void purge() const {
    std::uint64_t place = 0;
    state_->isSet = true;
    state_->innerSubject.setValue(state_->defaultValue,
                                  [&] { place = state_->writer->nextPlace(); });
    state_->writer->makeNow(place,
                            [this] { state_->backingPlistStore->backingDiskStore().purge(); });
  }

  /// Delivers the current value, without loading the file, and all later ones.
  void receive(std::shared_ptr<platform::Subscriber<T, platform::Never>> subscriber) const {
    state_->innerSubject.receive(std::move(subscriber));
  }

  /// @name File presenter
  /// @{
  [[nodiscard]] std::optional<platform::URL> presentedItemURL() const {
    return state_->presentedItemURL();
  }
  [[nodiscard]] std::shared_ptr<platform::NSOperationQueue> presentedItemOperationQueue() const {
    return state_->presentedItemOperationQueue();
  }
  void presentedItemDidChange() const { state_->presentedItemDidChange(); }

  /// The store's presenter, which lives as long as the store.
  [[nodiscard]] std::shared_ptr<platform::NSFilePresenter> filePresenter() const { return state_; }
  /// @}

 private:
  struct State final : platform::NSFilePresenter {
    State(const platform::URL& storeURL, T fallback)
        : url(storeURL),
          queue(detail::makePresenterQueue("Store for " + storeURL.lastPathComponent())),
          defaultValue(std::move(fallback)),
          innerSubject(defaultValue),
          backingPlistStore(std::make_shared<PlistFileStore<T>>(storeURL)) {}

    T value() {
      std::optional<T> loaded;
      fetchGuarder.performUntilDone([&] {
        // A value that was set after a failed read stays; the file's value would undo it.
        if (hasFailedToLoad && isSet) return true;
        try {
          auto read = backingPlistStore->load();
          if (hasFailedToLoad && isSet) return true;  // set meanwhile
          hasFailedToLoad = read.hasFailed;
          loaded = std::move(read.value);
          if (loaded) innerSubject.setValue(*loaded);
        } catch (const std::bad_alloc& error) {
          loaded.reset();
          hasFailedToLoad = true;
          detail::logIfUnreadable(url, error);
        }
        return !hasFailedToLoad || isSet;
      });
      return loaded ? *std::move(loaded) : innerSubject.value();
    }

    [[nodiscard]] std::optional<platform::URL> presentedItemURL() const override { return url; }
    [[nodiscard]] std::shared_ptr<platform::NSOperationQueue> presentedItemOperationQueue()
        const override {
      return queue;
    }

    // Kept: the value in memory is published again and the file is not read: reloading would throw
    // away a value whose write is still under way.
    void presentedItemDidChange() override {
      static_cast<void>(value());
      innerSubject.sendAgain();
    }

    DispatchOnce fetchGuarder;
    bool hasFailedToLoad = false;    // in the guard's block only
    std::atomic<bool> isSet{false};  // or purged
    const platform::URL url;
    const std::shared_ptr<platform::NSOperationQueue> queue;
    const T defaultValue;
    const platform::CurrentValueSubject<T, platform::Never> innerSubject;
    const std::shared_ptr<PlistFileStore<T>> backingPlistStore;  // shared with writes under way
    const std::shared_ptr<detail::BackgroundWriter> writer =
        std::make_shared<detail::BackgroundWriter>(url);
    const platform::ForkHandler onFork{[this] { fetchGuarder.forgetRunning(); }};
  };

  std::shared_ptr<State> state_;
};

}  // namespace ombrix
