// Hexadecimal, base64 and UUID texts, and the identifiers that use them.

#include "Helpers.h"
#include "PN_x509Thumbprint.h"
#include "TN_util.h"

using Testing::Octets;

/// Encodes into a buffer of exactly the size for `length` characters; one that is smaller must be refused.
template <class Encoder> static std::string Encode(Encoder encode, const std::string& bytes, std::size_t length) {
  const auto count = static_cast<unsigned>(bytes.size());
  std::vector<char> buffer(length + 1, 'x');
  EXPECT_EQ(encode(Octets(bytes), count, buffer.data(), static_cast<unsigned>(length)), nullptr);
  EXPECT_EQ(buffer[0], length == 0 ? 'x' : '\0');
  EXPECT_EQ(encode(Octets(bytes), count, buffer.data(), static_cast<unsigned>(length) + 1), buffer.data());
  return buffer.data();
}

/// Decodes into a buffer of exactly `length` bytes; one that is smaller must be refused. "!" when refused.
template <class Decoder> static std::string Decode(Decoder decode, const std::string& text, std::size_t length) {
  std::vector<Tarn::byte_t> buffer(length);
  bool refused = false;
  for (std::size_t capacity = length == 0 ? 0 : length - 1; capacity <= length; ++capacity) {
    unsigned count = 99;
    const int result = decode(text.c_str(), buffer.data(), static_cast<unsigned>(capacity), &count);
    refused = result != 0;
    EXPECT_TRUE(refused ? result == -1 && count == 0 : count == length && capacity == length)
        << text << " into " << capacity;
  }
  return refused ? "!" : std::string(buffer.begin(), buffer.end());
}

TEST(TextForms, KnownValuesBothWays) {
  const std::string known[][3] = {{"", "", ""},
                                  {"f", "66", "Zg=="},
                                  {"fo", "666f", "Zm8="},
                                  {"foo", "666f6f", "Zm9v"},
                                  {"foob", "666f6f62", "Zm9vYg=="},
                                  {"fooba", "666f6f6261", "Zm9vYmE="},
                                  {"foobar", "666f6f626172", "Zm9vYmFy"},
                                  {"\xfb\xff\xfe\x3e", "fbfffe3e", "+//+Pg=="}};
  for (const auto& [bytes, hex, base64] : known) {
    EXPECT_EQ(Encode(&Tarn::bin2hex, bytes, hex.size()), hex);
    EXPECT_EQ(Encode(&Tarn::base64encode, bytes, base64.size()), base64);
    EXPECT_EQ(Decode(&Tarn::hex2bin, hex, bytes.size()), bytes);
    EXPECT_EQ(Decode(&Tarn::base64decode, base64, bytes.size()), bytes);
  }
  EXPECT_EQ(Decode(&Tarn::hex2bin, "FbfFFE3e", 4), "\xfb\xff\xfe\x3e") << "either case";
  EXPECT_EQ(Decode(&Tarn::base64decode, "Zh==", 1), "f") << "bits beyond the last byte";
}

TEST(TextForms, MalformedTextsAreRefused) {
  for (const char* text : {"Z", "Zg", "Zg=", "Z===", "====", "=", "Zg==Zg==", "Zm8=Zm9v", "Zm9v=", "Zm9v====", "Zm9v\n",
                           " Zm9v", "Zm 9v", "Zm-_", "Zg==\n", "Z=g=", "Zm=v", "Zm9vY", "Zm9v\x80\x80\x80\x80"}) {
    EXPECT_EQ(Decode(&Tarn::base64decode, text, 64), "!") << text;
  }
  for (const char* text : {"0", "000", "0g", "g0", "0x00", " 00", "00 ", "00\n", "0\xb0", "-1", "+1"}) {
    EXPECT_EQ(Decode(&Tarn::hex2bin, text, 64), "!") << text;
  }
}

TEST(Identifiers, TakeTextsOfExactlyTheirSizeAndCompareByTheirBytes) {
  const Perenna::X509Thumbprint unset;
  for (std::size_t size = 19; size <= 21; ++size) {
    Perenna::X509Thumbprint id;
    id.Set(Octets(std::string(20, '\x80')));
    EXPECT_TRUE(id != unset && unset < id && !(id < unset));
    const std::string text = Encode(&Tarn::base64encode, std::string(size, '\0'), 28);
    EXPECT_EQ(id.DecodeBase64(text.c_str()), size == 20) << text;
    EXPECT_EQ(id.HasValue(), size == 20) << text;
    EXPECT_TRUE(id == unset) << "bytes alone count, and a refused text leaves zeros";
  }
}

TEST(Identifiers, UuidTextIsStrict) {
  const char* const form = "01234567-89ab-cdef-fedc-ba9876543210";
  EXPECT_EQ(Encode(&Tarn::bin2UUIDhex, "\x01\x23\x45\x67\x89\xab\xcd\xef\xfe\xdc\xba\x98\x76\x54\x32\x10", 36), form);
  char buffer[64] = "x";
  EXPECT_EQ(Tarn::bin2UUIDhex(Octets(form), 15, buffer, sizeof(buffer)), nullptr);
  Tarn::UUID id;
  for (const char* text : {"", "01234567", "0123456789abcdeffedcba9876543210", "01234567-89ab-cdef-fedc-ba987654321",
                           "01234567-89ab-cdef-fedc-ba98765432100", "{01234567-89ab-cdef-fedc-ba9876543210}",
                           "0123456-789ab-cdef-fedc-ba9876543210", "01234567089ab0cdef0fedc0ba9876543210"}) {
    ASSERT_TRUE(id.DecodeHex("01234567-89AB-cdef-FEDC-ba9876543210")) << "either case";
    EXPECT_STREQ(id.EncodeHex(buffer, sizeof(buffer)), form);
    EXPECT_FALSE(id.DecodeHex(text) || id.HasValue() || id != Tarn::UUID()) << text;
  }
}
