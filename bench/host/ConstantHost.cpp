// The host's transport with an answer that costs nothing: what a decision is measured against.
//   perenna-constant-host ADDRESS:PORT|unix:PATH...

#include <iostream>
#include <memory>

#include <unistd.h>

#include "host/http/serve/Server.h"

namespace {

class ConstantHandler : public Host::Handler {
public:
  Body OnHead(Host::Request&) override { return Body::Ignore; }
  std::size_t BodyLimit(const Host::Request&) override { return 0; }
  void BeginGroup() override {}
  std::optional<Host::Response> Handle(Host::Request&, const Deferral&) override {
    Host::Response response;
    response.fields = {{"X-Access-Outcome", "allowed"},
                       {"X-Request-Id", "00000000000000000000000000000000"},
                       {"Remote-User", "user1"},
                       {"Remote-Groups", "group1"}};
    return response;
  }
};

} // namespace

int main(int argc, char* argv[]) {
  Host::ServerSettings settings;
  settings.threads = 1;
  for (int i = 1; i < argc; ++i) {
    settings.listen.push_back(Host::ParseListenAddress(argv[i]));
  }
  Host::Server server(settings, [](unsigned) { return std::make_unique<ConstantHandler>(); });
  server.Start();
  std::cout << server.Listening().front() << std::endl;
  pause();
}
