// SHA-256 against published vectors and another program.

#include <cstring>
#include <fstream>

#include "Helpers.h"
#include "PN_Digest.h"

TEST(Sha256, AgreesWithPublishedVectorsAndWithAnotherProgramHoweverTheMessageIsCut) {
  Testing::Random random;
  SCOPED_TRACE(random.Trace());
  const Testing::TemporaryDirectory directory;
  const std::string message = random.Bytes(5000 + random.Below(100000));
  std::ofstream(directory.File("message"), std::ios::binary) << message;
  const std::string other = Testing::Output("sha256sum '" + directory.File("message") + "'").substr(0, 64);
  const std::tuple<std::string, bool, std::string> vectors[] = {
      {"", true, "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
      {"abc", true, "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
      {"abc", false, "ungWv48Bz+pBQUDeXa4iI7ADYaOWF3qctBD/YfIAFa0="},
      {message, true, other}};
  Perenna::SHA256 digest;
  for (const auto& [text, hexadecimal, expected] : vectors) {
    const std::size_t cut = random.Below(text.size() + 1);
    digest.Reset();
    digest.Update(Testing::Octets(text), static_cast<unsigned>(cut));
    digest.Update(text.substr(cut));
    digest.Finalize();
    std::vector<char> buffer(expected.size() + 1);
    const auto length = static_cast<unsigned>(buffer.size());
    EXPECT_EQ(digest.StringValue(buffer.data(), length - 1, hexadecimal), nullptr) << "does not fit";
    EXPECT_EQ(digest.StringValue(buffer.data(), length, hexadecimal), expected);
    EXPECT_DEATH(digest.Update(text), "fatal: the digest is not finalized yet");
    digest.Reset();
    digest.Update(std::string("forgotten"));
    EXPECT_DEATH(digest.StringValue(nullptr, 0, true), "fatal: the digest is finalized");
  }
}
