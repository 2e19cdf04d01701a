#pragma once

#include <string>

namespace Host {

/// Whether a text may serve as a request's id: 1 to 64 of the characters [A-Za-z0-9._-].
bool IsRequestId(const std::string& text) noexcept;

/// A random id of 32 hexadecimal digits. Thread-safe.
std::string NewRequestId();

} // namespace Host
