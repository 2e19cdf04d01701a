#pragma once

#include <pthread.h>

#include "TN_platform.h"

namespace Tarn {

/// A POSIX mutex with default attributes: not recursive, so a thread that holds it must not lock it again.
class Mutex {
public:
  Mutex() noexcept { pthread_mutex_init(&m_Mutex, nullptr); }
  ~Mutex() { pthread_mutex_destroy(&m_Mutex); }
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  /// Waits until the mutex is free and takes it.
  void Lock() noexcept { pthread_mutex_lock(&m_Mutex); }
  /// Releases it; only the thread that holds it may.
  void Unlock() noexcept { pthread_mutex_unlock(&m_Mutex); }

private:
  pthread_mutex_t m_Mutex;
};

/// Holds a mutex for the length of a scope, exceptions included.
class AutoMutex {
public:
  explicit AutoMutex(Mutex& mutex) noexcept : m_Held(mutex) { m_Held.Lock(); }
  ~AutoMutex() { m_Held.Unlock(); }
  AutoMutex(const AutoMutex&) = delete;
  AutoMutex& operator=(const AutoMutex&) = delete;

private:
  Mutex& m_Held;
};

} // namespace Tarn
