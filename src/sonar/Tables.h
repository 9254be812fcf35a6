// Where Sonar puts its results: the two tables of rows, and the map from streams to the transmitters that they serve.
// Who stands behind these writes them where the switch's agent reads.
#pragma once

#include <set>
#include <string>

#include "model/SonarRows.h"

namespace Sonar {

class IngressTable {
 public:
  virtual ~IngressTable() = default;
  /// Adds the row, or replaces the one of its key.
  virtual void rowIs(IngressStreamStatisticsTableEntry const& row) = 0;
  virtual void rowDel(IngressStream const& key) = 0;
};

class EgressTable {
 public:
  virtual ~EgressTable() = default;
  virtual void rowIs(EgressStreamTable const& row) = 0;
  virtual void rowDel(EgressStream const& key) = 0;
};

class StreamTransmitterMap {
 public:
  virtual ~StreamTransmitterMap() = default;
  /// The stream serves these transmitters, and no other.
  virtual void transmittersAre(EgressStream const& stream, std::set<std::string> const& transmitters) = 0;
  virtual void streamDel(EgressStream const& stream) = 0;
};

}  // namespace Sonar
