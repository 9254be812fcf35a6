// Frames: in what the state exchange travels, whatever carries it.
//
// A message (the delta of a turn, a snapshot, a beat, or a word between the two ends) is cut into frames of bounded
// size, each with a header: magic, layout version, kind, which mount, the hash of the mounted tree's layout, the
// writer's incarnation, the sequence number, and the piece of the message. A reader puts the pieces together again and
// decides what the message means to it:
// - a delta counts if its writer is the one known and its sequence the next;
// - a snapshot counts if its writer is new or its sequence newer; what is older is dropped in silence;
// - a gap, which a beat shows too, makes the reader stale until a snapshot comes.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "runtime/Codec.h"

namespace Rix {

enum class FrameKind : U8 { delta = 1, snapshot = 2, beat = 3, hello = 4, ask = 5, absent = 6 };

struct FrameHeader {
  static constexpr U32 magic = 0x3146425aU;  // "ZBF1"
  static constexpr U8 version = 1;
  static constexpr std::size_t encodedSize = 40;

  FrameKind kind = FrameKind::beat;
  U16 mount = 0;
  U32 schemaHash = 0;
  U64 incarnation = 0;  // rises with each start of the writer
  U64 sequence = 0;     // of the message, from its writer, on this mount
  U32 piece = 0;
  U32 pieces = 1;
};

// The most that a frame carries, and the most that its message does.
inline constexpr std::size_t maxFramePayload = std::size_t{64} * 1024;
inline constexpr std::size_t maxFrameSize = FrameHeader::encodedSize + maxFramePayload;
inline constexpr std::size_t maxMessageSize = std::size_t{64} * 1024 * 1024;

// A message as frames, each ready to be sent. RangeException if it is longer than a message may be.
std::vector<std::string> framesOf(FrameHeader const& header, std::string_view payload);

struct Frame {
  FrameHeader header;
  std::string_view payload;  // of the bytes that were read
};

// Reads one frame, which is all of `bytes`. FrameException if it is none.
Frame readFrame(std::string_view bytes);

// Puts the pieces of one mount's messages together.
class MessageAssembler {
 public:
  // Takes the next frame. True: `message()` is complete, for a header as of its frames, until the next call. A piece
  // out of place is dropped with what came before it, and the message with it: the sequence will show the gap.
  bool take(Frame const& frame);
  std::string const& message() const { return message_; }
  void clear();

 private:
  FrameHeader header_;
  U32 next_ = 0;
  std::string message_;
};

// One mount's messages as a reader sees them: what counts, what is old, what is missing.
class SequenceCheck {
 public:
  enum class Verdict : U8 { apply, drop, gap };
  // Does not change anything: a message counts only once it has been applied.
  Verdict judge(FrameHeader const& header) const;
  // A snapshot, or the absence of the tree, has been applied; or a delta.
  void applied(FrameHeader const& header);

  bool synchronised() const { return synchronised_; }
  // Something is missing: only a snapshot helps.
  void lost() { synchronised_ = false; }
  // A writer presents itself. One whose incarnation is not the known one is new, whichever number is larger: a clock
  // that was set back must not silence it.
  void writerIs(U64 incarnation);
  // The writer of the last snapshot; 0 if there was none.
  U64 incarnation() const { return incarnation_; }

 private:
  U64 incarnation_ = 0;
  U64 sequence_ = 0;
  bool synchronised_ = false;
};

}  // namespace Rix
