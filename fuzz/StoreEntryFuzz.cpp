// A key and a value of the store are one row or none, and a row has one key.

#include "Require.h"
#include "sync/data/Entry.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = Fuzz::Text(data, size);
  const std::string_view key = text.substr(0, text.find('\n'));
  const std::string value(text.substr(std::min(key.size() + 1, text.size())));
  std::string fault;
  const auto entry = Sync::ReadEntry(key, value, fault);
  Fuzz::Require(entry.has_value() == fault.empty(), "what is refused has a reason", fault);
  if (entry) {
    Fuzz::Require(Sync::KeyOf(*entry) == key, "a row has one key", key);
    const auto again = Sync::ReadEntry(key, Sync::ValueOf(*entry), fault);
    Fuzz::Require(again && again->texts == entry->texts, "a row is read as it was written", key);
  }
  return 0;
}
