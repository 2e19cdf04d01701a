#include "host/http/parse/ChunkedBody.h"

#include <algorithm>

namespace Host {

namespace {

// Eight hexadecimal digits name 4 GiB, beyond any limit of a body.
constexpr unsigned MostDigits = 8;

int DigitValue(char byte) noexcept {
  if (byte >= '0' && byte <= '9') {
    return byte - '0';
  }
  if (byte >= 'a' && byte <= 'f') {
    return byte - 'a' + 10;
  }
  return byte >= 'A' && byte <= 'F' ? byte - 'A' + 10 : -1;
}

} // namespace

ChunkedBody::Result ChunkedBody::Decode(std::string_view& bytes, std::string& out, std::size_t limit) {
  while (!bytes.empty()) {
    if (m_State == State::Data) {
      const auto taken = static_cast<std::size_t>(std::min<std::uint64_t>(m_Size, bytes.size()));
      out.append(bytes.data(), taken);
      bytes.remove_prefix(taken);
      m_Size -= taken;
      if (m_Size == 0) {
        m_State = State::DataReturn;
      }
      continue;
    }
    const char byte = bytes.front();
    bytes.remove_prefix(1);
    const Result result = Step(byte, limit - out.size());
    if (result != Result::More) {
      return result;
    }
  }
  return Result::More;
}

ChunkedBody::Result ChunkedBody::Step(char byte, std::size_t room) {
  const auto expect = [&](char wanted, State next) {
    m_State = next;
    return byte == wanted ? Result::More : Result::Malformed;
  };
  switch (m_State) {
  case State::Size:
    if (const int digit = DigitValue(byte); digit >= 0) {
      m_Size = m_Size * 16 + static_cast<unsigned>(digit);
      return ++m_Digits > MostDigits ? Result::Malformed : Result::More;
    }
    return m_Digits == 0 ? Result::Malformed : expect('\r', State::SizeEnd);
  case State::SizeEnd:
    m_Digits = 0;
    if (m_Size > room) {
      return byte == '\n' ? Result::TooLong : Result::Malformed;
    }
    return expect('\n', m_Size == 0 ? State::LastReturn : State::Data);
  case State::DataReturn:
    return expect('\r', State::DataFeed);
  case State::DataFeed:
    return expect('\n', State::Size);
  case State::LastReturn:
    return expect('\r', State::LastFeed);
  case State::LastFeed:
    return byte == '\n' ? Result::Complete : Result::Malformed;
  case State::Data:
    break;
  }
  return Result::Malformed;
}

} // namespace Host
