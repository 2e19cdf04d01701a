// The host's transport with an answer that costs nothing: what a decision is measured against.
//   perenna-constant-host ADDRESS:PORT

#include <iostream>
#include <memory>

#include <unistd.h>

#include "host/http/Server.h"

namespace {

class ConstantHandler : public Host::Handler {
public:
  Body OnHead(Host::Request&) override { return Body::Ignore; }
  std::size_t BodyLimit(const Host::Request&) override { return 0; }
  void BeginGroup() override {}
  std::optional<Host::Response> Handle(Host::Request&, const Deferral&) override {
    return {200,
            {{"X-Access-Outcome", "allowed"},
             {"X-Request-Id", "00000000000000000000000000000000"},
             {"Remote-User", "user1"},
             {"Remote-Groups", "group1"}},
            ""};
  }
};

} // namespace

int main(int argc, char* argv[]) {
  Host::ServerSettings settings;
  settings.threads = 1;
  settings.listen = {Host::ParseListenAddress(argc > 1 ? argv[1] : "127.0.0.1:8499")};
  Host::Server server(settings, [](unsigned) { return std::make_unique<ConstantHandler>(); });
  server.Start();
  std::cout << server.Listening().front() << std::endl;
  pause();
}
