#include "PN_PList.h"

#include <climits>
#include <cmath>
#include <memory>
#include <vector>

#include <nlohmann/json.hpp>

#include "TN_util.h"

namespace Perenna {

namespace {

using Json = nlohmann::json;

// Containers are built and destroyed recursively; hostile nesting must not reach the end of the stack.
constexpr std::size_t MaximumDepth = 200;

void AppendText(const std::string& text, std::string& json) {
  json += Json(text).dump(-1, ' ', false, Json::error_handler_t::replace);
}

void AppendScalar(const PListData& data, std::string& json) {
  long long integer = 0;
  double real = 0;
  switch (data.GetType()) {
  case IT_TRUE:
    json += "true";
    return;
  case IT_FALSE:
    json += "false";
    return;
  case IT_NULL:
    json += "null";
    return;
  case IT_INT:
  case IT_INT64:
    if (data.GetValue(integer)) {
      json += Json(integer).dump();
      return;
    }
    break;
  case IT_REAL:
    if (data.GetValue(real) && std::isfinite(real)) {
      json += Json(real).dump();
      return;
    }
    break;
  default:
    break;
  }
  AppendText(data.GetValue(), json);
}

bool AppendItem(const PListItem& item, std::size_t depth, std::string& json) {
  if (const auto* const data = dynamic_cast<const PListData*>(&item)) {
    AppendScalar(*data, json);
    return true;
  }
  if (depth == MaximumDepth) {
    return false;
  }
  const char* separator = "";
  if (const auto* const dictionary = dynamic_cast<const PListDict*>(&item)) {
    json += '{';
    for (const auto& [key, value] : *dictionary) {
      json += separator;
      AppendText(key, json);
      json += ':';
      if (!AppendItem(*value, depth + 1, json)) {
        return false;
      }
      separator = ",";
    }
    json += '}';
    return true;
  }
  const auto* const array = dynamic_cast<const PListArray*>(&item);
  if (array == nullptr) { // a bare item
    json += "null";
    return true;
  }
  json += '[';
  for (const PListItem* element : *array) {
    json += separator;
    if (!AppendItem(*element, depth + 1, json)) {
      return false;
    }
    separator = ",";
  }
  json += ']';
  return true;
}

/// Receives the parser's events and builds items from them; refuses what nests too deeply.
class Builder : public nlohmann::json_sax<Json> {
public:
  std::unique_ptr<PListItem> Take() { return std::move(m_Root); }

  bool null() override { return Scalar(IT_NULL, std::string()); }
  bool boolean(bool value) override { return Scalar(value ? IT_TRUE : IT_FALSE, std::string()); }
  bool number_integer(number_integer_t value) override {
    return Scalar(value >= INT_MIN && value <= INT_MAX ? IT_INT : IT_INT64, std::to_string(value));
  }
  bool number_unsigned(number_unsigned_t value) override {
    if (value <= static_cast<number_unsigned_t>(INT64_MAX)) {
      return number_integer(static_cast<number_integer_t>(value));
    }
    return number_float(static_cast<number_float_t>(value), std::string());
  }
  bool number_float(number_float_t value, const string_t& /*text*/) override {
    return Scalar(IT_REAL, Json(value).dump());
  }
  bool string(string_t& value) override { return Scalar(IT_STRING, value); }
  bool binary(binary_t& /*value*/) override { return false; } // not a JSON value
  bool start_object(std::size_t /*size*/) override { return Open(std::make_unique<PListDict>()); }
  bool key(string_t& value) override {
    m_Keys.back() = value;
    return true;
  }
  bool end_object() override { return Close(); }
  bool start_array(std::size_t /*size*/) override { return Open(std::make_unique<PListArray>()); }
  bool end_array() override { return Close(); }
  bool parse_error(std::size_t /*position*/, const std::string& /*token*/,
                   const nlohmann::detail::exception& /*error*/) override {
    return false;
  }

private:
  bool Scalar(ItemType_t type, const std::string& text) { return Store(std::make_unique<PListData>(type, text)); }

  bool Store(std::unique_ptr<PListItem> item) {
    if (m_Open.empty()) {
      m_Root = std::move(item);
    } else if (auto* const dictionary = dynamic_cast<PListDict*>(m_Open.back())) {
      dictionary->SetItem(m_Keys.back(), item.release());
    } else {
      dynamic_cast<PListArray&>(*m_Open.back()).Append(std::move(item));
    }
    return true;
  }

  bool Open(std::unique_ptr<PListItem> container) {
    if (m_Open.size() == MaximumDepth) {
      return false;
    }
    PListItem* const opened = container.get();
    Store(std::move(container));
    // cppcheck-suppress danglingLifetime ; stored below the root, which outlives this list
    m_Open.push_back(opened);
    m_Keys.emplace_back();
    return true;
  }

  bool Close() {
    m_Open.pop_back();
    m_Keys.pop_back();
    return true;
  }

  std::unique_ptr<PListItem> m_Root;
  std::vector<PListItem*> m_Open;  // containers being filled, outermost first; owned through m_Root
  std::vector<std::string> m_Keys; // for each, the key read last
};

} // namespace

Result_t PListItem::EncodeJSON(std::string& json) const {
  std::string text;
  if (!AppendItem(*this, 0, text)) {
    return Tarn::RESULT_PARAM;
  }
  json = std::move(text);
  return Tarn::RESULT_OK;
}

PListItem* PListItem::CreateFromJSON(const std::string& json) {
  Builder builder;
  // The parser takes a NUL for the end of the text.
  return json.find('\0') == std::string::npos && Json::sax_parse(json, &builder) ? builder.Take().release() : nullptr;
}

} // namespace Perenna
