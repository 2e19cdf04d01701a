#include "sync/data/Entry.h"

#include <gtest/gtest.h>

using AccessDirectory::Filters;
using AccessDirectory::Groups;
using AccessDirectory::Memberships;
using AccessDirectory::Users;
using Sync::Entry;

namespace {

const std::string NotUtf8 = "\xff\xfe/%";

} // namespace

TEST(StoreEntries, KeysAndValuesCarryEveryByteThatARowMayHold) {
  const struct {
    Entry entry;
    std::string key;
    std::string value;
  } cases[] = {
      {{Users, {"Jörg/1", "sha256", NotUtf8, "2026", "a\"b"}},
       "u/J%C3%B6rg%2F1",
       R"({"auth_method":"sha256","auth_value":{"base64":"//4vJQ=="},"create_date":"2026","create_user":"a\"b"})"},
      {{Users, {"", "m", "", "", ""}},
       "u/",
       R"({"auth_method":"m","auth_value":"","create_date":"","create_user":""})"},
      {{Groups, {"a_b-c.d~", "Name"}}, "g/a_b-c.d%7E", R"({"group_name":"Name"})"},
      {{Memberships, {"g", NotUtf8}}, "m/g/%FF%FE%2F%25", ""},
      {{Filters, {"GET", "g", "^/a(/|$)\n", "Allow"}}, "f/g/GET/Allow/%5E%2Fa%28%2F%7C%24%29%0A", ""},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.key);
    EXPECT_EQ(KeyOf(each.entry), each.key);
    EXPECT_EQ(ValueOf(each.entry), each.value);
    std::string fault;
    const auto read = Sync::ReadEntry(each.key, each.value, fault);
    ASSERT_TRUE(read) << fault;
    EXPECT_EQ(read->section, each.entry.section);
    EXPECT_EQ(read->texts, each.entry.texts);
  }
}

TEST(StoreEntries, WhatNoEntryIsKeptAsIsRefused) {
  const std::string user = R"({"auth_method":"m","auth_value":"v","create_date":"","create_user":""})";
  const std::pair<std::string, std::string> cases[] = {{"u", user},
                                                       {"x/a", user},
                                                       {"u/a/b", user},
                                                       {"u/%61", user}, // two keys for one id
                                                       {"u/%2f", user},
                                                       {"u/%2", user},
                                                       {"u/a b", user},
                                                       {"u/a%00", user},
                                                       {"u/a", ""},
                                                       {"u/a", "[]"},
                                                       {"g/a", "{}"},
                                                       {"g/a", R"({"group_name":1})"},
                                                       {"m/g", ""},
                                                       {"f/g/GET/Allow", ""},
                                                       {"m/g/u/more", ""},
                                                       {"", ""},
                                                       {"g/a", R"({"group_name":{"base64":"!"}})"},
                                                       {"g/a", R"({"group_name":"a\u0000b"})"}};
  for (const auto& [key, value] : cases) {
    std::string fault;
    EXPECT_FALSE(Sync::ReadEntry(key, value, fault)) << key << " = " << value;
    EXPECT_FALSE(fault.empty());
  }
}
