#include "PN_PList.h"

#include <array>
#include <charconv>
#include <climits>
#include <memory>
#include <utility>

#include "TN_util.h"

namespace Perenna {

namespace {

// Enough for any double in its shortest form and for any 64-bit integer.
constexpr std::size_t NumberTextBytes = 40;

template <class Number> bool ReadNumber(const std::string& text, Number& value) noexcept {
  const char* const end = text.data() + text.size();
  Number read{};
  const auto [stop, status] = std::from_chars(text.data(), end, read);
  const bool whole = status == std::errc() && stop == end;
  value = whole ? read : Number{};
  return whole;
}

template <class Number> std::string NumberText(Number value) {
  std::array<char, NumberTextBytes> buffer{};
  const auto [end, status] = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
  static_cast<void>(status); // the buffer always suffices
  return {buffer.data(), end};
}

std::unique_ptr<PListItem> CopyOf(const PListItem& item) {
  return std::unique_ptr<PListItem>(item.Copy());
}

} // namespace

PListItem::~PListItem() = default;

void PListItem::ForceType(const ItemType_t& type) {
  m_type = type;
}

Tarn::XMLElement* PListItem::CreateXMLElement() const {
  return nullptr;
}

PListItem* PListItem::Copy() const {
  return new PListItem(*this);
}

bool PListData::GetValue(int& value) const noexcept {
  return ReadNumber(m_value, value);
}

bool PListData::GetValue(long long& value) const noexcept {
  return ReadNumber(m_value, value);
}

bool PListData::GetValue(double& value) const noexcept {
  return ReadNumber(m_value, value);
}

bool PListData::GetValue(Tarn::ByteString& value) const {
  static_cast<void>(value.Set(nullptr, 0));
  unsigned count = 0;
  if (m_value.size() > UINT_MAX || m_value.find('\0') != std::string::npos ||
      value.Capacity(static_cast<unsigned>(m_value.size())).Failed() ||
      Tarn::base64decode(m_value.c_str(), value.Data(), value.Capacity(), &count) != 0) {
    return false;
  }
  return !value.Length(count).Failed();
}

PListItem* PListData::Copy() const {
  return new PListData(*this);
}

PListDict::PListDict(const PListDict& other) : PListDict() {
  for (const auto& [key, item] : other.m_items) {
    SetItem(key, item->Copy());
  }
}

PListDict::~PListDict() {
  for (const auto& [key, item] : m_items) {
    delete item;
  }
}

const PListItem* PListDict::Find(const std::string& key) const {
  const auto found = m_items.find(key);
  return found == m_items.end() ? nullptr : found->second;
}

const PListData& PListDict::GetData(const std::string& key) const {
  static const PListData empty;
  const auto* const data = dynamic_cast<const PListData*>(Find(key));
  return data != nullptr ? *data : empty;
}

bool PListDict::GetData(const std::string& key, PListData*& item) const {
  const auto found = m_items.find(key);
  if (found == m_items.end()) {
    return false;
  }
  if (auto* const data = dynamic_cast<PListData*>(found->second)) {
    item = data;
    return true;
  }
  // Made anew for each call: what a caller wrote into it is nobody else's to read.
  thread_local PListData stand_in;
  stand_in = PListData(found->second->GetType(), "");
  item = &stand_in;
  return true;
}

bool PListDict::GetArray(const std::string& key, PListArray*& array) const {
  const auto found = m_items.find(key);
  auto* const stored = found == m_items.end() ? nullptr : dynamic_cast<PListArray*>(found->second);
  if (stored == nullptr) {
    return false;
  }
  array = stored;
  return true;
}

const PListDict& PListDict::GetDict(const std::string& key) const {
  static const PListDict empty;
  const auto* const dictionary = dynamic_cast<const PListDict*>(Find(key));
  return dictionary != nullptr ? *dictionary : empty;
}

void PListDict::SetItem(const std::string& key, PListItem* item) {
  TN_REQUIRE(item != nullptr, "item!=0");
  std::unique_ptr<PListItem> owned(item);
  PListItem*& slot = m_items[key];
  std::unique_ptr<PListItem> replaced(std::exchange(slot, owned.release()));
  if (replaced.get() == item) { // the entry was set to itself
    static_cast<void>(replaced.release());
  }
}

void PListDict::SetScalar(const std::string& key, ItemType_t type, const std::string& text) {
  SetItem(key, new PListData(type, text));
}

void PListDict::SetValue(const std::string& key, const std::string& value) {
  SetScalar(key, IT_STRING, value);
}

void PListDict::SetValue(const std::string& key, const char* value) {
  SetScalar(key, IT_STRING, value);
}

void PListDict::SetValue(const std::string& key, const int& value) {
  SetScalar(key, IT_INT, NumberText(value));
}

void PListDict::SetValue(const std::string& key, const long long& value) {
  SetScalar(key, IT_INT64, NumberText(value));
}

void PListDict::SetValue(const std::string& key, const double& value) {
  SetScalar(key, IT_REAL, NumberText(value));
}

void PListDict::SetValue(const std::string& key, const Tarn::ByteString& value) {
  std::string text(Tarn::base64_buffer_size(value.Length()), '\0');
  Tarn::base64encode(value.RoData(), value.Length(), text.data(), static_cast<unsigned>(text.size()));
  text.pop_back(); // the terminator
  SetScalar(key, IT_DATA, text);
}

void PListDict::SetNull(const std::string& key) {
  SetScalar(key, IT_NULL, std::string());
}

void PListDict::ForceType(const ItemType_t& /*type*/) {}

PListItem* PListDict::Copy() const {
  return new PListDict(*this);
}

// The base list is not copied: it would share the elements.
// NOLINTNEXTLINE(bugprone-copy-constructor-init,readability-redundant-member-init)
PListArray::PListArray(const PListArray& other) : PListItem(IT_ARRAY), std::list<PListItem*>() {
  try {
    for (const PListItem* item : other) {
      Append(CopyOf(*item));
    }
  } catch (...) {
    for (const PListItem* item : *this) {
      delete item;
    }
    throw;
  }
}

PListArray::~PListArray() {
  for (const PListItem* item : *this) {
    delete item;
  }
}

void PListArray::Append(std::unique_ptr<PListItem> item) {
  TN_REQUIRE(item != nullptr, "item!=0");
  push_back(item.get());
  static_cast<void>(item.release());
}

void PListArray::AppendText(const std::string& text) {
  Append(std::make_unique<PListData>(IT_STRING, text));
}

void PListArray::ForceType(const ItemType_t& /*type*/) {}

PListItem* PListArray::Copy() const {
  return new PListArray(*this);
}

} // namespace Perenna
