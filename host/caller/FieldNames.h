#pragma once

#include <string>
#include <vector>

#include "host/http/Message.h"

namespace Host {

/// A field that may be there once.
struct SingleField {
  const std::string* value = nullptr; ///< null when it is absent; of the fields that were searched
  std::string fault;                  ///< why it cannot be trusted, as a sentence's clause; empty when it can
};

/// Finds the field `name` among `fields`, in one pass. It cannot be trusted, and has no value, when it is there twice;
/// when it is there under another name that differs only in what is neither letter nor digit, which many servers take
/// for the same; or when `Connection` names it, which makes intermediaries drop it (RFC 9110, section 7.6.1).
SingleField FindSingle(const std::vector<Field>& fields, const std::string& name);

} // namespace Host
