#include "sync/Settings.h"

#include <fstream>

#include <gtest/gtest.h>

#include "directory/Failure.h"
#include "support/Support.h"

TEST(SyncSettings, WhatCannotBeMeantIsRefusedByItsName) {
  const Testing::TemporaryDirectory place;
  const std::string file = place.File("host.json");
  const auto read = [&file](const std::string& section) -> std::string {
    std::ofstream(file) << "{\"Sync\": " << section << "}";
    try {
      return "prefix " + Sync::ReadSettings(file).prefix;
    } catch (const AccessDirectory::Failure& failure) {
      return failure.what();
    }
  };
  const std::string fine = R"("Endpoints": ["https://a:2379", "http://127.0.0.1:2379", "http://[::1]:2379"])";
  EXPECT_EQ(read("{" + fine + "}"), "prefix /perenna/");
  const std::pair<std::string, std::string> cases[] = {
      {"[]", "no section"},
      {"{}", "Sync.Endpoints is missing"},
      {R"({"Endpoints": ["http://10.0.0.1:2379"]})", "Sync.Endpoints"}, // credentials in the clear
      {R"({"Endpoints": ["http://127.0.0.1@evil:1"]})", "Sync.Endpoints"},
      {R"({"Endpoints": ["ftp://a"]})", "Sync.Endpoints"},
      {"{" + fine + R"(, "Endpoint": 1})", "the nearest is \"Sync.Endpoints\""},
      {"{" + fine + R"(, "Prefix": "perenna"})", "Sync.Prefix"},
      {"{" + fine + R"(, "User": "a"})", "Sync.PasswordFile"},
      {"{" + fine + R"(, "Key": "a"})", "Sync.Certificate"},
  };
  for (const auto& [section, part] : cases) {
    EXPECT_NE(read(section).find(part), std::string::npos) << section << ": " << read(section);
  }
}
