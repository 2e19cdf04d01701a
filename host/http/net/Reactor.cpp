#include "host/http/net/Reactor.h"

#include <chrono>
#include <utility>

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/basic_stream_descriptor.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>

namespace Host {

namespace asio = boost::asio;

class Reactor::Implementation {
public:
  void Tick(std::function<void()> work) {
    timer.expires_after(std::chrono::seconds(1));
    timer.async_wait([this, work = std::move(work)](const boost::system::error_code& error) mutable {
      if (error) {
        return;
      }
      work();
      Tick(std::move(work));
    });
  }

  // The hint promises one thread in `run`; others may still post.
  asio::io_context context{1};
  asio::steady_timer timer{context};
};

Reactor::Reactor() : m_Implementation(std::make_unique<Implementation>()) {}

Reactor::~Reactor() = default;

void Reactor::Run() {
  const auto guard = asio::make_work_guard(m_Implementation->context);
  m_Implementation->context.run();
}

void Reactor::Stop() {
  m_Implementation->context.stop();
}

void Reactor::Post(std::function<void()> work) {
  asio::post(m_Implementation->context, std::move(work));
}

void Reactor::EverySecond(std::function<void()> work) {
  m_Implementation->Tick(std::move(work));
}

class Watch::Implementation {
public:
  Implementation(asio::io_context& context, int handle) : descriptor(context, handle) {}

  asio::posix::basic_stream_descriptor<asio::io_context::executor_type> descriptor;
};

Watch::Watch(Reactor& reactor, int descriptor)
    : m_Implementation(std::make_unique<Implementation>(reactor.m_Implementation->context, descriptor)) {}

Watch::~Watch() {
  // Its owner closes the descriptor.
  m_Implementation->descriptor.release();
}

void Watch::Wait(For what, std::shared_ptr<Waiter> waiter) {
  m_Implementation->descriptor.async_wait(what == For::Reading ? asio::posix::descriptor_base::wait_read
                                                               : asio::posix::descriptor_base::wait_write,
                                          [waiter = std::move(waiter)](const boost::system::error_code& error) {
                                            if (error != asio::error::operation_aborted) {
                                              waiter->OnReady();
                                            }
                                          });
}

void Watch::Cancel() {
  m_Implementation->descriptor.cancel();
}

} // namespace Host
