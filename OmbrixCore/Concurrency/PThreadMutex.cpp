#include "OmbrixCore/Concurrency/PThreadMutex.hpp"

#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix {

PThreadMutex::PThreadMutex(PThreadMutexType type) {
  pthread_mutexattr_t attributes;
  if (pthread_mutexattr_init(&attributes) != 0) {
    platform::fatalError("mutex attributes cannot be initialised");
  }
  // By name: the numbers of these types differ between platforms.
  pthread_mutexattr_settype(&attributes, type == PThreadMutexType::recursive
                                             ? PTHREAD_MUTEX_RECURSIVE
                                             : PTHREAD_MUTEX_NORMAL);
  if (pthread_mutex_init(&mutex_, &attributes) != 0) {
    platform::fatalError("mutex cannot be initialised");
  }
  pthread_mutexattr_destroy(&attributes);
}

PThreadMutex::~PThreadMutex() { pthread_mutex_destroy(&mutex_); }

}  // namespace ombrix
