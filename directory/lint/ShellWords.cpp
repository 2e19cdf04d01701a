#include "directory/lint/ShellWords.h"

#include <algorithm>

namespace AccessDirectory {

namespace {

constexpr const char* PlainCharacters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-./:=@%+,";
constexpr std::size_t MaximumBytes = 65536; // of a command; an argument may have twice as many

bool IsPrintable(char byte) {
  return byte >= ' ' && byte <= '~';
}

std::string SingleQuoted(const std::string& text) {
  std::string quoted = "'";
  for (const char byte : text) {
    quoted += byte == '\'' ? "'\\''" : std::string(1, byte);
  }
  return quoted + '\'';
}

/// The output of printf, with everything but letters and digits in octal: nothing is left for a shell to read.
std::string Printed(const std::string& text) {
  std::string format;
  for (const char byte : text) {
    const bool plain = (byte >= '0' && byte <= '9') || (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z');
    if (plain) {
      format += byte;
      continue;
    }
    const auto code = static_cast<unsigned char>(byte);
    format += '\\';
    for (const unsigned shift : {6U, 3U, 0U}) {
      format += static_cast<char>('0' + ((code >> shift) & 7U));
    }
  }
  return "\"$(printf '" + format + "')\"";
}

} // namespace

std::optional<std::string> ShellWord(const std::string& text) {
  if (text.size() > MaximumBytes || text.find('\0') != std::string::npos || (!text.empty() && text.back() == '\n')) {
    return std::nullopt;
  }
  if (!text.empty() && text.find_first_not_of(PlainCharacters) == std::string::npos) {
    return text;
  }
  return std::all_of(text.begin(), text.end(), IsPrintable) ? SingleQuoted(text) : Printed(text);
}

std::optional<std::string> ShellCommand(const std::vector<std::string>& words) {
  std::string command;
  for (const std::string& text : words) {
    const std::optional<std::string> word = ShellWord(text);
    if (!word) {
      return std::nullopt;
    }
    command += (command.empty() ? "" : " ") + *word;
  }
  return command.size() > MaximumBytes ? std::nullopt : std::optional<std::string>(command);
}

} // namespace AccessDirectory
