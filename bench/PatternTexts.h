#pragma once

#include <random>
#include <string>
#include <vector>

/// Patterns of all kinds, from those that people write to those that are meant to ruin a matcher.
std::string RandomPattern(std::mt19937& random);

/// Texts of `bytes` bytes that a pattern has trouble with: nearly matching, from its own bytes, over and over.
std::vector<std::string> AdverseTexts(const std::string& pattern, std::size_t bytes, std::mt19937& random);
