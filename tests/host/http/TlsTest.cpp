#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>

#include "directory/Failure.h"
#include "host/http/RunningServer.h"

namespace Testing {

namespace {

std::string Shell(const std::string& command) {
  // NOLINTNEXTLINE(cert-env33-c): the test's own words, and a client that is not ours
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pipe(::popen((command + " 2>&1").c_str(), "r"), ::pclose);
  std::array<char, 4096> buffer{};
  std::string output;
  while (std::fgets(buffer.data(), buffer.size(), pipe.get()) != nullptr) {
    output += buffer.data();
  }
  return output;
}

} // namespace

TEST(Tls, ServesClientsWithAndWithoutACertificateAndNothingOld) {
  const TemporaryDirectory place;
  const std::string certificate = place.File("c");
  const std::string key = place.File("k");
  const std::string make = "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -subj /CN=a -keyout " +
                           key + " -out " + certificate;
  Shell(make);
  auto settings = RunningServer::Settings("https:127.0.0.1:0");
  settings.certificate_file = certificate;
  settings.key_file = key;
  settings.ask_for_client_certificate = true;
  settings.idle = settings.request = settings.handshake = std::chrono::milliseconds(5000);
  RunningServer server(settings);
  const std::string address = server->Listening().front().substr(6);
  // Pipelined, so that the second request comes in the same record as the first.
  const std::string ask = "printf 'GET /big HTTP/1.1\\r\\nHost: a\\r\\n\\r\\nGET /end HTTP/1.0\\r\\n\\r\\n' | openssl "
                          "s_client -ign_eof -connect " +
                          address + " ";

  const std::string plain = Shell(ask + "-tls1_2 -alpn h2,http/1.1 | tail -c 2000");
  EXPECT_NE(plain.find("\r\n\r\nGET /end \n"), std::string::npos) << plain;
  EXPECT_EQ(server.SoFar().requests.back().peer.certificate_der, "");
  EXPECT_TRUE(server.SoFar().requests.back().peer.tls);

  Shell(ask + "-cert " + certificate + " -key " + key);
  Shell("openssl x509 -outform der -in " + certificate + " -out " + place.File("d"));
  std::ifstream der(place.File("d"), std::ios::binary);
  EXPECT_EQ(server.SoFar().requests.back().peer.certificate_der, std::string(std::istreambuf_iterator<char>(der), {}));

  const auto handled = server.SoFar().requests.size();
  Shell(ask + "-tls1_1 -cipher ALL:@SECLEVEL=0");
  Shell(ask + "-alpn h2");
  RawClient(server).Send("GET / HTTP/1.1\r\nHost: a\r\n\r\n").ReadToEnd();
  EXPECT_EQ(server.SoFar().requests.size(), handled);

  // Files that do not fit together leave what works; new ones take over.
  Shell("openssl genpkey -algorithm ed25519 -out " + key);
  EXPECT_THROW(server->Reload(), AccessDirectory::Failure);
  Shell(make + " -subj /CN=renewed");
  server->Reload();
  EXPECT_NE(Shell(ask + "| head -20").find("CN = renewed"), std::string::npos);
}

} // namespace Testing
