// Property lists: ownership, copies, typed reads, JSON.

#include <climits>

#include "Helpers.h"
#include "PN_PList.h"

using namespace Perenna;
using Testing::Repeat;

static std::unique_ptr<PListItem> Parse(const std::string& json) {
  return std::unique_ptr<PListItem>(PListItem::CreateFromJSON(json));
}

static std::string Encode(const PListItem& item) {
  std::string json = "untouched";
  const Tarn::Result_t result = item.EncodeJSON(json);
  EXPECT_EQ(result == Tarn::RESULT_OK, json != "untouched");
  return result == Tarn::RESULT_OK ? json : result.symbol;
}

TEST(PropertyLists, AbsentKeysAndOtherKindsReadAsEmpty) {
  PListDict dict;
  dict.SetValue("scalar", "x");
  dict.SetItem("array", new PListArray);
  dict.SetItem("dict", new PListDict);
  PListData* item = nullptr;
  PListArray* array = nullptr;
  for (const char* key : {"absent", "scalar", "dict"}) {
    EXPECT_TRUE(!dict.GetArray(key, array) && array == nullptr) << key;
    EXPECT_EQ(dict.GetDict(key).GetDict("b").GetData("c").GetValue(), "") << key;
  }
  EXPECT_TRUE(!dict.GetData("absent", item) && item == nullptr && dict.size() == 3);
  EXPECT_EQ(dict.GetData("absent").GetValue() + dict.GetData("dict").GetValue(), "");
  EXPECT_TRUE(dict.GetData("dict", item) && item->HasType(IT_DICT)) << "can be refused by its kind";
  item->SetValue("scribble");
  EXPECT_TRUE(dict.GetData("array", item) && item->HasType(IT_ARRAY) && item->GetValue().empty());
}

static int s_destroyed = 0;

TEST(PropertyLists, ContainersOwnTheVeryItemsTheyAreGiven) {
  struct Counted : PListData {
    ~Counted() override { ++s_destroyed; }
  };
  s_destroyed = 0;
  auto dict = std::make_unique<PListDict>();
  auto* const array = new PListArray;
  dict->SetItem("array", array);
  dict->SetItem("array", array); // again
  array->push_back(new Counted);
  array->AppendText("last");
  PListArray* found = nullptr;
  EXPECT_TRUE(dict->GetArray("array", found) && found == array);
  EXPECT_EQ(Encode(*dict), R"({"array":["","last"]})");
  EXPECT_EQ(s_destroyed, 0);
  dict->SetItem("array", new Counted);
  EXPECT_EQ(s_destroyed, 1) << "with the array that was replaced";
  dict.reset();
  EXPECT_EQ(s_destroyed, 2);
  EXPECT_DEATH(PListDict().SetItem("null", nullptr), "fatal: item!=0");
}

TEST(PropertyLists, CopiesAreDeep) {
  PListDict source;
  auto* const array = new PListArray;
  source.SetItem("a", array);
  array->Append(std::make_unique<PListDict>());
  PListDict copy(source);
  const std::unique_ptr<PListItem> other_copy(source.Copy());
  array->AppendText("two");
  dynamic_cast<PListDict&>(*array->front()).SetValue("n", 3);
  EXPECT_EQ(Encode(copy) + Encode(*other_copy), R"({"a":[{}]}{"a":[{}]})");
  copy.SetNull("a");
  EXPECT_EQ(Encode(source), R"({"a":[{"n":3},"two"]})");
}

TEST(PropertyLists, SettersKeepTheValueAndReplaceTheEntry) {
  Testing::Random random;
  SCOPED_TRACE(random.Trace());
  PListDict dict;
  for (const double real : {0.1, -1e308, 5e-324, 1.0 / 3}) {
    const std::string bytes = random.Bytes(1 + random.Below(600));
    double real_back = 0;
    Tarn::ByteString data;
    ASSERT_EQ(data.Set(Testing::Octets(bytes), static_cast<unsigned>(bytes.size())), Tarn::RESULT_OK);
    dict.SetValue("real", real);
    dict.SetValue("data", data);
    EXPECT_TRUE(dict.GetData("real").GetValue(real_back) && real_back == real) << Encode(dict);
    ASSERT_TRUE(dict.GetData("data").GetValue(data)) << Encode(dict);
    EXPECT_EQ(std::string(data.RoData(), data.RoData() + data.Length()), bytes);
  }
  dict.SetNull("data");
  dict.SetValue("real", LLONG_MIN);
  dict.SetValue("text", INT_MIN);
  dict.SetValue("text", dict.GetData("text").GetValue()); // from the entry that it replaces
  EXPECT_EQ(Encode(dict), R"({"data":null,"real":-9223372036854775808,"text":"-2147483648"})");
}

TEST(PropertyLists, TypedReadsTakeTheWholeTextOrNothing) {
  const auto check = [](const std::string& text, auto value, double expected) {
    const bool accepted = PListData(IT_STRING, text).GetValue(value);
    EXPECT_EQ(accepted, expected != 0) << text;
    EXPECT_EQ(static_cast<double>(value), expected) << text; // zero is stored when it is refused
  };
  for (const auto& [text, as_int, as_int64, as_real] : {std::tuple("2147483647", 0x7fffffff, 0x1p31 - 1, 0x1p31 - 1),
                                                        {"2147483648", 0, 0x1p31, 0x1p31},
                                                        {"9223372036854775808", 0, 0, 0x1p63},
                                                        {"-12", -12, -12, -12},
                                                        {"-1.5e3", 0, 0, -1500},
                                                        {"1e999", 0, 0, 0},
                                                        {"", 0, 0, 0},
                                                        {" 1", 0, 0, 0},
                                                        {"1 ", 0, 0, 0},
                                                        {"+1", 0, 0, 0}}) {
    check(text, 55, as_int);
    check(text, 55LL, as_int64);
    check(text, 55.0, as_real);
  }
  for (const std::string& text : {std::string("AP8=\0!", 6), std::string("AP8")}) {
    Tarn::ByteString bytes;
    EXPECT_EQ(bytes.Set(Testing::Octets("old"), 3), Tarn::RESULT_OK);
    EXPECT_TRUE(!PListData(IT_DATA, text).GetValue(bytes) && bytes.Length() == 0) << text;
  }
}

TEST(Json, EveryKindHasItsForm) {
  const std::tuple<const char*, ItemType_t, std::string> both_ways[] = {
      {"true", IT_TRUE, ""},
      {"false", IT_FALSE, ""},
      {"null", IT_NULL, ""},
      {"-2147483648", IT_INT, "-2147483648"},
      {"-2147483649", IT_INT64, "-2147483649"},
      {"9.223372036854776e+18", IT_REAL, "9.223372036854776e+18"},
      {"\"\\\"\\\\/\\u0000\xc3\xa9\"", IT_STRING, std::string("\"\\/\0\xc3\xa9", 6)}};
  for (const auto& [json, kind, text] : both_ways) {
    const auto item = Parse(json);
    ASSERT_TRUE(item != nullptr && item->HasType(kind)) << json;
    EXPECT_EQ(dynamic_cast<const PListData&>(*item).GetValue(), text) << json;
    EXPECT_EQ(Encode(*item), json);
  }
  EXPECT_EQ(Encode(PListData(IT_INT, "1,\"x\":2")), R"("1,\"x\":2")") << "no way out of the text";
  EXPECT_EQ(Encode(PListItem(IT_NULL)), "null");
  EXPECT_EQ(Encode(PListData(IT_STRING, "\xff")), "\"\xef\xbf\xbd\"");
  EXPECT_EQ(Encode(PListData(IT_DATE, "2026-01-31")), "\"2026-01-31\"");
  EXPECT_EQ(Encode(PListData(IT_REAL, "3")), "3.0") << "stays a real";
  EXPECT_EQ(Encode(*Parse("9223372036854775808")), "9.223372036854776e+18");
  const auto tree = Parse(R"({ "a":{"b":[1]}, "":[{}, [], null, 1, -2.5], "a":{"b":"x"} })");
  ASSERT_NE(tree, nullptr);
  EXPECT_EQ(Encode(*tree), R"({"":[{},[],null,1,-2.5],"a":{"b":"x"}})") << "of a key given twice the last value stays";
}

TEST(Json, MalformedAndHostileTextsAreRefused) {
  for (const char* json : {"", "nan", "[1,]", "[1] 2", "{\"a\" 1}", "{1:2}", "'a'", "\"a", "\"\n\"", "01", "// c\n1",
                           "\"\\ud800\"", "\"\xff\"", "\"\xc0\x80\"", "[1,2", "]"}) {
    EXPECT_EQ(Parse(json), nullptr) << json;
  }
  EXPECT_EQ(Parse(std::string("1\0]", 3)), nullptr);
  EXPECT_EQ(Parse(Repeat("[", 1000000)), nullptr);
  for (const auto& [open, close] : {std::pair("[", "]"), {"{\"a\":", "}"}}) {
    const std::string deepest = Repeat(open, 200) + "1" + Repeat(close, 200);
    auto item = Parse(deepest);
    ASSERT_NE(item, nullptr) << open;
    EXPECT_EQ(Encode(*item), deepest);
    EXPECT_EQ(Parse(open + deepest + close), nullptr) << open;
    PListArray deeper;
    deeper.Append(std::move(item));
    EXPECT_EQ(Encode(deeper), "PARAM") << open;
  }
}
