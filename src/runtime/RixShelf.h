// The request to attach shared tables to an entity, as plain data.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace RixShelf {

/// How an entity's tables are to be attached. An agent hands the values over as they stand; this build has one way of
/// attaching tables and reads none of them.
struct MountInfo {
  std::uint64_t firstWord = 0;
  bool flags[5] = {};
  std::map<std::string, std::string> collections;
  std::uint16_t lastWord = 0;
};

}  // namespace RixShelf
