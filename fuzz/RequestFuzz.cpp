// The requests of a connection are the same however its bytes are cut.

#include "Require.h"
#include "host/http/parse/RequestReader.h"

namespace {

constexpr std::size_t HeaderBytes = 1024;
constexpr std::size_t BodyBytes = 200;

class ReadsBodies : public Host::Handler {
public:
  Body OnHead(Host::Request& /*request*/) override { return Body::Read; }
  std::size_t BodyLimit(const Host::Request& /*request*/) override { return BodyBytes; }
  void BeginGroup() override {}
  std::optional<Host::Response> Handle(Host::Request& /*request*/, const Deferral& /*defer*/) override { return {}; }
};

std::string Described(const Host::Request& request, bool keep_alive) {
  std::string text = request.method + ' ' + request.target + (request.http_1_0 ? " 1.0" : " 1.1") + '\n';
  for (const Host::Field& field : request.fields) {
    for (const char character : field.value) {
      Fuzz::Require(static_cast<unsigned char>(character) >= 0x20 || character == '\t', "no control byte in a field");
    }
    text += field.name + ": " + field.value + '\n';
  }
  return text + request.body + (keep_alive ? "\nstays\n" : "\ncloses\n");
}

/// What becomes of `bytes`, which come in pieces of that size.
std::string RequestsOf(std::string_view bytes, std::size_t piece) {
  ReadsBodies handler;
  Host::RequestPool pool;
  Host::RequestReader reader;
  const Host::RequestReader::Surroundings around{handler, pool, HeaderBytes};
  const Host::Peer peer;
  std::string requests;
  while (!bytes.empty()) {
    auto result = reader.Read(around, peer, bytes.substr(0, piece));
    bytes.remove_prefix(std::min(piece, bytes.size()));
    for (; result == Host::RequestReader::Result::Complete; result = reader.Read(around, peer, {})) {
      auto request = reader.Take();
      requests += Described(*request, reader.KeepAlive());
      pool.Return(std::move(request));
      if (!reader.KeepAlive()) {
        return requests;
      }
    }
    if (result == Host::RequestReader::Result::Refused) {
      return requests + "refused with " + std::to_string(reader.Status());
    }
  }
  return requests;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view bytes = Fuzz::Text(data, size);
  const std::size_t piece = 1 + Fuzz::Choice(bytes);
  const std::string whole = RequestsOf(bytes, bytes.size());
  Fuzz::Require(RequestsOf(bytes, piece) == whole, "pieces are read as the whole", whole);
  Fuzz::Require(RequestsOf(bytes, 1) == whole, "bytes are read as the whole", whole);
  return 0;
}
