#pragma once

#include <string>
#include <string_view>

#include "host/http/Message.h"

namespace Host {

/// What an answer says of its connection.
enum class Persistence {
  Close,
  Keep,          ///< as HTTP/1.1 does when nothing is said
  KeepAnnounced, ///< as HTTP/1.0 needs to be told
};

/// Appends an answer as it is sent. `date` is an HTTP date; to a HEAD request the body's length is told and the body
/// not sent. Returns false, and appends nothing, when the response cannot be sent as it is: a status outside 200 to
/// 599, a field name that is no token, a value with a control byte, or one of the fields that the transport writes
/// itself.
bool AppendAnswer(std::string& out, const Response& response, bool to_head, Persistence persistence,
                  std::string_view date);

/// The answer of the transport itself: the status and its name as text.
Response PlainAnswer(unsigned status);

/// The current time as an HTTP date (RFC 9110, 5.6.7), put into text once a second. For one thread.
class DateText {
public:
  std::string_view Now();

private:
  long long m_Second = -1;
  std::string m_Text;
};

} // namespace Host
