#include "host/decision/memory/QuestionDigests.h"

#include <array>
#include <optional>

#include "host/Network.h"

namespace Host {

namespace {

constexpr std::size_t Ipv6NetworkBytes = 8; // what one customer has at least: a /64

/// What counts as one client: an IPv4 address, or an IPv6 network.
std::string NetworkOf(const std::string& address) {
  const std::optional<AddressBytes> bytes = ParseAddress(address);
  if (!bytes) {
    return address;
  }
  const bool is_ipv6 = address.find(':') != std::string::npos;
  return {bytes->begin(), bytes->begin() + (is_ipv6 ? Ipv6NetworkBytes : bytes->size())};
}

} // namespace

Digest QuestionDigests::OfQuestion(const Question& question, std::string_view url) {
  const Credentials& credentials = question.credentials;
  const std::array<char, 3> kinds = {static_cast<char>(credentials.kind), static_cast<char>(question.method),
                                     static_cast<char>(question.for_proxy ? 1 : 0)};
  return m_Digest.Begin('q')
      .Add({kinds.data(), kinds.size()})
      .Add(url)
      .Add(credentials.user_id)
      .Add(credentials.password)
      .Add(credentials.certificate)
      .Finish();
}

Digest QuestionDigests::OfPair(const Question& question) {
  return m_Digest.Begin('i').Add(question.credentials.user_id).Add(NetworkOf(question.address)).Finish();
}

Digest QuestionDigests::OfProof(const Question& question) {
  return m_Digest.Begin('p')
      .Add(question.credentials.user_id)
      .Add(question.credentials.password)
      .Add(NetworkOf(question.address))
      .Finish();
}

std::string QuestionDigests::TextOfQuery(std::string_view query) {
  const Digest digest = m_Digest.Begin('l').Add(query).Finish();
  std::array<char, 2 * sizeof(digest.first) + 1> text{};
  const auto* const bytes = reinterpret_cast<const Tarn::byte_t*>(&digest.first);
  return Tarn::bin2hex(bytes, sizeof(digest.first), text.data(), text.size());
}

} // namespace Host
