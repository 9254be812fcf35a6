// Rix::Replica: a local tree of records that follows a writer's, by the deltas and snapshots of its AttributeLog.
//
// What arrives is applied through the records' own operations, so that watchers hear of it as of any write. It goes in
// two passes: the first reads all and holds it against the tree, the second applies; so a malformed frame is one
// exception and changes nothing.
//
// A record here lives as long as the writer's object: it is updated in place, and never replaced while that object
// stands, also when a snapshot comes in between. A new child is made complete before it is announced.
// - A delta is applied step by step, in the writer's order.
// - A snapshot is applied as the difference to what is here. First goes what is gone: a record whose object is gone,
// and
//   before it the members of its collections, each in a step of its own, since a reader may act on a member's going
//   alone. Then comes what is new. Of an attribute that the schema marks `rewritten`, another value is a deletion and
//   an addition.
// - The first snapshot of a new writer is such a difference too, by keys alone; or the old tree goes as a whole and the
//   new one comes, where what the new writer does not know yet must not count as gone.
//
// A frame may take memory in proportion to its own length: it cannot name what it does not bring.
#pragma once

#include <functional>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "runtime/AttributeLog.h"
#include "runtime/Record.h"

namespace Rix {

class Replica {
 public:
  enum class NewWriter : U8 { patches, replaces };
  // Told when the tree comes (its root, complete) and when it goes (null).
  using RootChanged = std::function<void(Ptr<Entity> const& root)>;

  Replica(Record const& record, NewWriter newWriter, RootChanged rootChanged);
  ~Replica();
  Replica(Replica const&) = delete;
  Replica& operator=(Replica const&) = delete;

  Record const& record() const { return record_; }
  Ptr<Entity> root() const { return nodes_.empty() ? nullptr : nodes_[0].entity; }
  // How many records there are.
  std::size_t records() const { return records_; }

  // Apply a payload; FrameException, and nothing changed, if it is malformed. `sameWriter`: the snapshot's writer is
  // that of the snapshot before, so that serial numbers can be compared.
  void delta(std::string_view payload);
  void snapshot(std::string_view payload, bool sameWriter);
  // The first pass alone.
  void checkSnapshot(std::string_view payload) const;
  // The tree as the payload of a snapshot, with the writer's serial numbers. There must be one.
  std::string encoded() const;
  // Takes a tree that stands for its own, as one of a writer before. It must be of the replica's type, and nothing may
  // stand here.
  void adopt(Ptr<Entity> const& root);
  // The writer has no such tree any more.
  void remove();

 private:
  static constexpr U32 none = 0xffffffff;
  // What stands in a slot. Links are slots.
  struct Node {
    Ptr<Entity> entity;
    U32 serial = 0;
    U32 parent = none;
    U32 firstChild = none;
    U32 next = none;
    U32 previous = none;
    U8 field = 0;  // in the parent
  };
  struct DeltaStep {
    Step step;
    U32 slot;
    Field const* field;
    std::size_t at;  // of the payload: what follows the field
  };
  struct Check;
  struct Patch;

  void place(U32 slot, U32 serial, Ptr<Entity> const& entity, U32 parent, unsigned field);
  void forget(U32 slot);
  Ptr<Entity> build(Record const& record, ByteReader& reader, U32 parent, unsigned field);
  void apply(DeltaStep const& step, std::string_view payload);
  void prefetch(std::vector<DeltaStep> const& steps, std::size_t next) const;
  // A slot that is in use.
  Record const& recordAt(U32 slot) const { return *kinds_[kindAt_[slot] - std::size_t{1}]; }
  void replaceRoot(std::string_view payload);
  void adopt(Ptr<Entity> const& entity, U32 parent, unsigned field);

  Record const& record_;
  NewWriter const newWriter_;
  RootChanged const rootChanged_;
  std::vector<Node> nodes_;
  // Of what kind the record in each slot is, counted from 1 in `kinds_`; 0 if the slot is free. A check of a frame
  // needs no more than this, a byte for each record that it meets.
  std::vector<U8> kindAt_;
  std::vector<Record const*> kinds_;
  std::size_t records_ = 0;
};

}  // namespace Rix
