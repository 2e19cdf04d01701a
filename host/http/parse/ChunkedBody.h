#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Host {

/// Decodes a chunked body (RFC 9112, 7.1) that comes piece by piece. Takes neither chunk extensions nor trailer fields,
/// which no client of ours needs and which hide requests from readers that skip them differently.
class ChunkedBody {
public:
  enum class Result { More, Complete, Malformed, TooLong };

  /// Takes from the front of `bytes` what belongs to the body and appends the data to `out`, which never grows beyond
  /// `limit` bytes. After Complete the rest of `bytes` belongs to the next request.
  Result Decode(std::string_view& bytes, std::string& out, std::size_t limit);

private:
  enum class State : std::uint8_t { Size, SizeEnd, Data, DataReturn, DataFeed, LastReturn, LastFeed };

  Result Step(char byte, std::size_t room);

  std::uint64_t m_Size = 0; // of the chunk; what is left of it while in Data
  std::uint8_t m_Digits = 0;
  State m_State = State::Size;
};

} // namespace Host
