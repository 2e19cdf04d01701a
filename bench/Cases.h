#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "Floor.h"
#include "LocalAccessManager.h"

namespace Bench {

/// The module, on a database file of its own or of the floor's.
struct Module {
  explicit Module(const std::string& file);

  LocalAccessManager::UserManager directory;
  LocalAccessManager::SelfAccessManager keys;
};

/// What one call asks; every benchmark uses its part. The constant in the module's digests is its own, so that either
/// side has users of its own to log in.
struct Question {
  Perenna::HTTPRequest request;
  std::string user_id;
  std::string module_login;
  std::string floor_login;
  std::string password; // wrong in one of eight
  Perenna::X509Certificate certificate;
};

/// A directory sized by its filters: ten filters and ten users a group, two groups a user.
struct Shape {
  unsigned filters;
  unsigned Groups() const { return filters / 10; }
  unsigned Users() const { return Groups() * 10 / 2; }

  /// Creates the database file. The module writes the schema; the rows go in by one transaction.
  /// `tuned`: as `perenna-access tune` leaves it.
  void Build(const std::string& file, bool tuned) const;
  /// Spread over the directory; requests that are allowed, denied, or named by no filter.
  std::vector<Question> Questions() const;
};

/// The same work on both sides. The number returned says what was found, the same on both.
struct Case {
  std::string name;
  double limit;              ///< the largest ratio of module to floor that we accept
  unsigned filters_per_unit; ///< filters of the directory for each unit of the benchmark's size
  std::function<std::size_t(Module&, const Shape&, const Question&)> module;
  std::function<std::size_t(Floor&, const Shape&, const Question&)> floor;
  unsigned keys_left = 0;  ///< keys that a call leaves in its side's store
  bool tuned = false;      ///< both sides work on a tuned file
  bool on_threads = false; ///< measured with several threads too

  Shape ShapeAt(unsigned size) const { return {size * filters_per_unit}; }
};

const std::vector<Case>& Cases();

} // namespace Bench
