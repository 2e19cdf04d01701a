#pragma once

#include <string>

namespace AccessDirectory {

/// A secret that is overwritten when it ends. Filled in place: growing would leave copies behind.
class Secret {
public:
  Secret();
  ~Secret();
  Secret(Secret&& other) noexcept;
  Secret& operator=(Secret&&) = delete;
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;

  /// Longest secret, in bytes.
  static constexpr std::size_t MaximumBytes = 4096;

  const std::string& Text() const noexcept { return m_Text; }
  /// False, with nothing added, beyond MaximumBytes.
  bool Append(char byte);
  void RemoveLast() noexcept;
  void Clear() noexcept;

private:
  std::string m_Text;
};

} // namespace AccessDirectory
