// SHA-256 against published vectors and other programs.

#include <cstring>
#include <fstream>

#include "Helpers.h"
#include "PN_Digest.h"

TEST(Sha256, PublishedVectorsInBothTextForms) {
  const std::tuple<std::string, bool, const char*> vectors[] = {
      {"", true, "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
      {"abc", true, "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
      {"abc", false, "ungWv48Bz+pBQUDeXa4iI7ADYaOWF3qctBD/YfIAFa0="},
      {std::string(1000000, 'a'), true, "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"}};
  Perenna::SHA256 digest;
  for (const auto& [message, hexadecimal, text] : vectors) {
    digest.Reset();
    digest.Update(message);
    digest.Finalize();
    std::vector<char> buffer(std::strlen(text) + 1, 'x');
    const auto length = static_cast<unsigned>(buffer.size());
    EXPECT_EQ(digest.StringValue(buffer.data(), length - 1, hexadecimal), nullptr) << "does not fit";
    EXPECT_STREQ(digest.StringValue(buffer.data(), length, hexadecimal), text);
  }
}

TEST(Sha256, AgreesWithOtherProgramsHoweverTheMessageIsCut) {
  Testing::Random random;
  SCOPED_TRACE(random.Trace());
  const Testing::TemporaryDirectory directory;
  Perenna::SHA256 digest;
  std::string expected;
  std::string files;
  for (const std::size_t size : {1UL, 55UL, 56UL, 63UL, 64UL, 65UL, 119UL, 4096UL, 5000 + random.Below(100000)}) {
    const std::string message = random.Bytes(size);
    files += " '" + directory.File(std::to_string(size)) + "'";
    std::ofstream(directory.File(std::to_string(size)), std::ios::binary) << message;
    const std::size_t cut = random.Below(size);
    digest.Reset();
    digest.Update(Testing::Octets(message), static_cast<unsigned>(cut));
    digest.Update(message.substr(cut));
    digest.Finalize();
    char buffer[128];
    expected += digest.StringValue(buffer, sizeof(buffer), true) + std::string("\n");
    digest.Reset();
    digest.Update(std::string("forgotten"));
  }
  EXPECT_EQ(Testing::Output("sha256sum" + files + " | cut -c1-64"), expected);
  EXPECT_EQ(Testing::Output("openssl dgst -r -sha256" + files + " | cut -c1-64"), expected);
  EXPECT_DEATH(digest.StringValue(nullptr, 0, true), "fatal: the digest is finalized");
  digest.Finalize();
  EXPECT_DEATH(digest.Update(std::string("x")), "fatal: the digest is not finalized yet");
}
