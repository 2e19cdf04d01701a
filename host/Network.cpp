#include "host/Network.h"

#include <charconv>

#include <arpa/inet.h>

namespace Host {

namespace {

constexpr AddressBytes Mapped = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
constexpr unsigned MappedBits = 96;

/// The bits of byte `index` that a prefix of `bits` bits covers.
unsigned Mask(std::size_t index, unsigned bits) noexcept {
  const unsigned before = static_cast<unsigned>(index) * 8;
  return bits >= before + 8 ? 0xffU : bits <= before ? 0U : 0xffU & (0xffU << (before + 8 - bits));
}

} // namespace

std::optional<AddressBytes> ParseAddress(const std::string& text) {
  AddressBytes address = Mapped;
  if (text.find('\0') != std::string::npos) {
    return std::nullopt;
  }
  if (inet_pton(AF_INET, text.c_str(), address.data() + MappedBits / 8) == 1) {
    return address;
  }
  return inet_pton(AF_INET6, text.c_str(), address.data()) == 1 ? std::optional(address) : std::nullopt;
}

std::optional<Network> Network::Parse(const std::string& text) {
  const std::size_t slash = text.find('/');
  const std::optional<AddressBytes> address = ParseAddress(text.substr(0, slash));
  if (!address) {
    return std::nullopt;
  }
  Network network;
  network.m_Address = *address;
  if (slash != std::string::npos) {
    const bool is_ipv4 = text.find(':') == std::string::npos;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data() + slash + 1, end, network.m_Bits);
    if (error != std::errc() || stop != end || network.m_Bits > (is_ipv4 ? 32U : 128U)) {
      return std::nullopt;
    }
    network.m_Bits += is_ipv4 ? MappedBits : 0;
  }
  for (std::size_t i = 0; i < address->size(); ++i) {
    if (((*address)[i] & ~Mask(i, network.m_Bits) & 0xffU) != 0) {
      return std::nullopt;
    }
  }
  return network;
}

bool Network::Contains(const AddressBytes& address) const noexcept {
  for (std::size_t i = 0; i < address.size(); ++i) {
    if (((address[i] ^ m_Address[i]) & Mask(i, m_Bits)) != 0) {
      return false;
    }
  }
  return true;
}

} // namespace Host
