#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "PN_error.h"
#include "TN_memio.h"

namespace Tarn {
class XMLElement;
}

namespace Perenna {

/// Kind of a property-list item. The numbers are fixed.
enum ItemType_t : std::uint32_t {
  IT_STRING = 0,
  IT_TRUE = 1,
  IT_FALSE = 2,
  IT_INT = 3,   ///< 32-bit signed
  IT_INT64 = 4, ///< 64-bit signed
  IT_REAL = 5,  ///< double precision
  IT_DATE = 6,  ///< a date, carried as text
  IT_DATA = 7,  ///< bytes
  IT_NULL = 8,
  IT_DICT = 9,
  IT_ARRAY = 10
};

// Property lists: the structured values of configuration, requests, rows and listings.
//
// Ownership: a dictionary or an array owns every item handed to it, stores the very pointer it was given, and destroys
// its contents with itself. Whoever handed an item over may go on filling it through the pointer while the container
// lives. None of these classes locks; an object is used by one thread at a time.

/// Base of every item; by itself a kind without a value.
class TN_API PListItem {
public:
  PListItem() = default;
  explicit PListItem(ItemType_t type) : m_type(type) {}
  virtual ~PListItem();

  ItemType_t GetType() const noexcept { return m_type; }
  bool HasType(ItemType_t type) const noexcept { return m_type == type; }

  /// Changes the kind that the item reports; a scalar's text stays as it is. Containers keep their kind.
  virtual void ForceType(const ItemType_t& type);
  /// The item in XML form. This library brings no XML: always null.
  virtual Tarn::XMLElement* CreateXMLElement() const;
  /// A deep copy, the caller's.
  virtual PListItem* Copy() const;
  /// Writes the item as JSON (RFC 8259) into `json`: integers and finite reals as numbers, IT_DATE as its text, IT_DATA
  /// as base64 text, a number whose text is malformed as a string, bytes that are not UTF-8 as U+FFFD.
  /// Tarn::RESULT_OK; Tarn::RESULT_PARAM, `json` untouched, beyond 200 levels of nesting.
  virtual Result_t EncodeJSON(std::string& json) const;
  /// Builds the item that `json` (RFC 8259, UTF-8) describes, the caller's; null when it is malformed or nests deeper
  /// than 200 levels. Integers become IT_INT or, beyond 32 bits, IT_INT64; other numbers IT_REAL. Of a key that occurs
  /// twice the last value stays.
  static PListItem* CreateFromJSON(const std::string& json);

protected:
  PListItem(const PListItem&) = default;
  PListItem& operator=(const PListItem&) = default;

  ItemType_t m_type = IT_NULL;
};

/// A scalar of any kind, held as text: integers in decimal, reals in the shortest decimal form that reads back the
/// same, bytes in base64; IT_TRUE, IT_FALSE and IT_NULL need no text.
class TN_API PListData : public PListItem {
public:
  /// IT_STRING with an empty text.
  PListData() : PListItem(IT_STRING) {}
  PListData(ItemType_t type, std::string text) : PListItem(type), m_value(std::move(text)) {}

  const std::string& GetValue() const noexcept { return m_value; }
  /// Replaces the text; the kind stays.
  void SetValue(const std::string& value) { m_value = value; }

  // The typed reads convert the whole text. Malformed or out of range: 0 (or no bytes) is stored and false returned.
  bool GetValue(int& value) const noexcept;
  bool GetValue(long long& value) const noexcept;
  bool GetValue(double& value) const noexcept;
  bool GetValue(Tarn::ByteString& value) const;

  PListItem* Copy() const override;

private:
  std::string m_value;
};

class PListArray;

/// A dictionary from text keys to owned items; a key occurs at most once.
class TN_API PListDict : public PListItem {
public:
  using Map = std::map<std::string, PListItem*>;

  PListDict() : PListItem(IT_DICT) {}
  /// A deep copy.
  PListDict(const PListDict& other);
  PListDict& operator=(const PListDict&) = delete;
  ~PListDict() override;

  /// The scalar under `key`; a shared empty one when the key is absent or holds a container.
  const PListData& GetData(const std::string& key) const;
  /// True when `key` is present. `item` is then its scalar, the dictionary's own; for a container `item` becomes a
  /// stand-in of the calling thread that reports the container's kind, so that a caller can refuse it by name. It lasts
  /// until the thread's next such call.
  bool GetData(const std::string& key, PListData*& item) const;
  /// True, with `array` set to the dictionary's own, only when `key` holds an array.
  bool GetArray(const std::string& key, PListArray*& array) const;
  /// The dictionary under `key`; a shared empty one when there is none.
  const PListDict& GetDict(const std::string& key) const;

  /// Stores `item`, which must not be null, under `key` and owns it from then on; replaces an entry of that key.
  void SetItem(const std::string& key, PListItem* item);

  // Each stores a new scalar under `key`, replacing an entry of that key.
  void SetValue(const std::string& key, const std::string& value);
  void SetValue(const std::string& key, const char* value);
  void SetValue(const std::string& key, const int& value);
  void SetValue(const std::string& key, const long long& value);
  void SetValue(const std::string& key, const double& value);
  void SetValue(const std::string& key, const Tarn::ByteString& value);
  void SetNull(const std::string& key);

  /// The entries in ascending order of their keys.
  Map::const_iterator begin() const noexcept { return m_items.begin(); }
  Map::const_iterator end() const noexcept { return m_items.end(); }
  std::size_t size() const noexcept { return m_items.size(); }

  void ForceType(const ItemType_t& type) override;
  PListItem* Copy() const override;

private:
  void SetScalar(const std::string& key, ItemType_t type, const std::string& text);
  const PListItem* Find(const std::string& key) const;

  Map m_items;
};

/// An ordered sequence of owned items, walked and extended as the list that it is. Whoever removes an element through
/// the list's operations owns it.
class TN_API PListArray : public PListItem, public std::list<PListItem*> {
public:
  PListArray() : PListItem(IT_ARRAY) {}
  /// A deep copy.
  PListArray(const PListArray& other);
  PListArray& operator=(const PListArray&) = delete;
  ~PListArray() override;

  /// Appends `item`, which must not be null.
  void Append(std::unique_ptr<PListItem> item);
  /// Appends a new text item.
  void AppendText(const std::string& text);

  void ForceType(const ItemType_t& type) override;
  PListItem* Copy() const override;
};

} // namespace Perenna
