#pragma once

#include <array>
#include <optional>
#include <string>

namespace Host {

/// An IP address in one form for both families: IPv4 as the IPv6 address that maps it (RFC 4291, 2.5.5.2).
using AddressBytes = std::array<unsigned char, 16>;

/// A numeric address, "192.0.2.7" or "2001:db8::1"; nothing for any other text.
std::optional<AddressBytes> ParseAddress(const std::string& text);

/// A network in CIDR form (RFC 4632), or a single address.
class Network {
public:
  /// "192.0.2.0/24", "2001:db8::/32", "192.0.2.7"; nothing for a malformed text or bits set beyond the prefix, which
  /// would show that another network was meant.
  static std::optional<Network> Parse(const std::string& text);

  bool Contains(const AddressBytes& address) const noexcept;

private:
  AddressBytes m_Address{};
  unsigned m_Bits = 128; // of the mapped form
};

} // namespace Host
