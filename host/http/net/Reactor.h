#pragma once

#include <functional>
#include <memory>

namespace Host {

/// Is told when a descriptor is ready.
class Waiter {
public:
  virtual ~Waiter() = default;
  /// Once for each `Watch::Wait`, on the reactor's thread; what it throws ends `Reactor::Run`.
  virtual void OnReady() = 0;
};

/// The loop of one thread: waits for descriptors, for the next second and for what other threads hand over. Only `Post`
/// and `Stop` may be called from another thread than the one in `Run`.
class Reactor {
public:
  Reactor();
  ~Reactor();
  Reactor(const Reactor&) = delete;
  Reactor& operator=(const Reactor&) = delete;

  /// Runs until `Stop`.
  void Run();
  void Stop();

  /// Runs `work` on the loop's thread, after what is ready already, in the order of the calls. What is posted after
  /// `Stop` is destroyed without having run.
  void Post(std::function<void()> work);
  /// Runs `work` once a second from now on.
  void EverySecond(std::function<void()> work);

  class Implementation;

private:
  friend class Watch;
  std::unique_ptr<Implementation> m_Implementation;
};

/// A descriptor that a reactor watches; the descriptor must outlive it, the reactor too. For the reactor's thread.
class Watch {
public:
  enum class For { Reading, Writing };

  /// Throws `std::system_error` when the system cannot watch it.
  Watch(Reactor& reactor, int descriptor);
  /// Nobody is told any more.
  ~Watch();
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  /// Tells `waiter`, which it keeps alive until then, when the descriptor is ready or has failed; never from within the
  /// call. One wait at a time.
  void Wait(For what, std::shared_ptr<Waiter> waiter);
  /// Ends the wait under way, if any; a waiter whose descriptor is ready already may still be told.
  void Cancel();

private:
  class Implementation;
  std::unique_ptr<Implementation> m_Implementation;
};

} // namespace Host
