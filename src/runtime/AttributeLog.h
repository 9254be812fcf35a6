// Rix::AttributeLog: the journal of the changes of one tree of records, on the side of its writer.
//
// It watches every record below a root and notes what a replica must be told, in order, until the end of the turn.
// - Creations and deletions are never merged and keep their place: a deletion that was folded away would be one that a
//   reader of the replica does not act on.
// - Writes to one attribute, or to one key, coalesce to the last one and its place.
// - A creation carries the finished object, as it is at the flush, and so takes up the later writes below it. If
//   something below it is deleted before the flush, it carries what was there until then, and the rest follows.
// - What still stands below a deleted record goes with it in one step. What was written before is told before.
//
// Memory: a node for each record; of writes at most one entry for each attribute or key of the tree. Only creations
// and deletions within one turn have no bound but what one turn does, and nothing is noted while nobody reads.
//
// Every record has a slot, by which steps name it, and a serial number that no other object of the tree ever had, by
// which a replica tells an object from another one under the same key.
#pragma once

#include <list>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "runtime/Record.h"

namespace Rix {

// What a delta consists of: see Replica.h for the other side. `at` selects a record for the steps behind it.
enum class Step : U8 {
  at = 1,      // slot
  write = 2,   // field, value
  put = 3,     // field, key, value
  erase = 4,   // field, key
  create = 5,  // field, then the child: slot, serial, body
  remove = 6   // the selected record itself, with what stands below it
};

class AttributeLog {
 public:
  // Watches `root` from now on. `firstSerial` lies above the serials of a tree that stood in the same place before.
  // `wake`, if given, is called when the first change is noted, and again after each flush or snapshot.
  explicit AttributeLog(Ptr<Entity> const& root, U32 firstSerial = 1, std::function<void()> wake = {});
  ~AttributeLog();
  AttributeLog(AttributeLog const&) = delete;
  AttributeLog& operator=(AttributeLog const&) = delete;

  Ptr<Entity> const& root() const { return root_; }
  U32 nextSerial() const { return nextSerial_; }
  // How many records the tree has.
  std::size_t records() const { return records_; }

  // Whether changes are noted. Off at first, and while nobody reads; a snapshot turns it on.
  bool recording() const { return recording_; }
  // Notes changes from here on, as after a snapshot that nobody wants to have.
  void record();
  // Forgets what was noted, and notes nothing until the next snapshot.
  void stop();

  bool hasChanges() const { return !journal_.empty(); }
  // How many steps wait.
  std::size_t changes() const { return journal_.size(); }
  // The steps noted since the last flush or snapshot, as the payload of a delta.
  std::string flush();
  // The whole tree, as the payload of a snapshot. It stands for all that was noted so far.
  std::string snapshot();

 private:
  struct Node;
  struct Entry;
  using Journal = std::list<Entry>;
  using Place = Journal::iterator;
  using Children = std::map<std::pair<unsigned, std::string>, std::unique_ptr<Node>>;

  // Notifications.
  void attributeChanged(Node& node, unsigned field);
  void keyChanged(Node& node, unsigned field, std::string_view key);
  void memberChanged(Node& node, Field const& field, std::string_view key);
  void entryChanged(Node& node, Field const& field, std::string_view key);

  void addChildren(Node& node);
  Node& addChild(Node& parent, Field const& field, std::string_view key, Entity& entity);
  void removeChild(Node& parent, Children::iterator child);

  // The unsent creation that carries this node, if one does.
  Node* carrier(Node& node) const;
  // From now on the creation carries what it holds at this moment.
  void settle(Node& creation);
  // What waits for this node and those below it is told as it is now, for they are about to go.
  void release(Node& node);

  Place note(Entry entry);
  std::string keyPlaceName(Node const& node, Field const& field, std::string_view key) const;
  void encodeNode(Node const& node, ByteWriter& writer) const;
  void encodeEntry(Entry const& entry, ByteWriter& writer, U32& at) const;
  void renumber(Node& node);
  void forget();

  Ptr<Entity> const root_;
  std::function<void()> const wake_;
  U32 nextSerial_;
  U32 nextSlot_ = 0;
  std::size_t records_ = 0;
  bool recording_ = false;
  U32 generation_ = 1;              // of the journal: places of an earlier one mean nothing
  std::vector<U32> freeSlots_;      // to be given again
  std::vector<U32> releasedSlots_;  // given again only after the flush, so that one delta names each but once
  Journal journal_;
  std::unordered_map<std::string, Place> keyPlaces_;           // of the last put of a key
  std::unordered_map<std::string, std::string> unsentValues_;  // of keys of records whose creation is not sent yet
  std::unique_ptr<Node> tree_;
};

}  // namespace Rix
