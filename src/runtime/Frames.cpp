// Headers, pieces and sequences.
#include "runtime/Frames.h"

#include <algorithm>

#include "runtime/Exceptions.h"

namespace Rix {
namespace {

constexpr U32 maxPieces = static_cast<U32>(maxMessageSize / maxFramePayload);

void encodeHeader(FrameHeader const& header, U32 length, ByteWriter& writer) {
  writer.fixed(FrameHeader::magic);
  writer.fixed(FrameHeader::version);
  writer.fixed(static_cast<U8>(header.kind));
  writer.fixed(header.mount);
  writer.fixed(header.schemaHash);
  writer.fixed(header.incarnation);
  writer.fixed(header.sequence);
  writer.fixed(static_cast<U16>(header.piece));
  writer.fixed(static_cast<U16>(header.pieces));
  writer.fixed(U32{0});
  writer.fixed(length);
}

template <class Value>
void expect(ByteReader const& reader, std::string_view what, Value expected, Value found) {
  if (found != expected) reader.malformed(what, std::to_string(expected), std::to_string(found));
}

}  // namespace

std::vector<std::string> framesOf(FrameHeader const& header, std::string_view payload) {
  if (payload.size() > maxMessageSize) {
    throwRangeException("a message of " + std::to_string(payload.size()) + " bytes; at most " +
                        std::to_string(maxMessageSize) + " can be sent");
  }
  FrameHeader each = header;
  each.pieces = std::max(1U, static_cast<U32>((payload.size() + maxFramePayload - 1) / maxFramePayload));
  std::vector<std::string> frames;
  for (each.piece = 0; each.piece < each.pieces; ++each.piece) {
    std::string_view const part = payload.substr(each.piece * maxFramePayload, maxFramePayload);
    ByteWriter writer;
    encodeHeader(each, static_cast<U32>(part.size()), writer);
    writer.raw(part);
    frames.push_back(writer.take());
  }
  return frames;
}

Frame readFrame(std::string_view bytes) {
  ByteReader reader(bytes);
  expect(reader, "magic", FrameHeader::magic, reader.fixed<U32>("magic"));
  expect<unsigned>(reader, "layout version", FrameHeader::version, reader.fixed<U8>("layout version"));
  Frame frame;
  U8 const kind = reader.fixed<U8>("kind");
  if (kind < 1 || kind > 6) reader.malformed("kind", "1 to 6", std::to_string(kind));
  frame.header.kind = static_cast<FrameKind>(kind);
  frame.header.mount = reader.fixed<U16>("mount");
  frame.header.schemaHash = reader.fixed<U32>("schema hash");
  frame.header.incarnation = reader.fixed<U64>("incarnation");
  frame.header.sequence = reader.fixed<U64>("sequence");
  frame.header.piece = reader.fixed<U16>("piece");
  frame.header.pieces = reader.fixed<U16>("pieces");
  if (frame.header.pieces == 0 || frame.header.pieces > maxPieces) {
    reader.malformed("pieces", "1 to " + std::to_string(maxPieces), std::to_string(frame.header.pieces));
  }
  if (frame.header.piece >= frame.header.pieces) {
    reader.malformed("piece", "below " + std::to_string(frame.header.pieces), std::to_string(frame.header.piece));
  }
  expect<U32>(reader, "reserved field", 0, reader.fixed<U32>("reserved field"));
  U32 const length = reader.fixed<U32>("length");
  if (length > maxFramePayload) {
    reader.malformed("length", "at most " + std::to_string(maxFramePayload), std::to_string(length));
  }
  expect<std::size_t>(reader, "length", reader.left(), length);
  frame.payload = reader.raw(length, "payload");
  return frame;
}

bool MessageAssembler::take(Frame const& frame) {
  FrameHeader const& header = frame.header;
  if (header.piece == 0) {
    message_.clear();
    header_ = header;
    next_ = 0;
  }
  bool const fits = header.piece == next_ && header.kind == header_.kind && header.pieces == header_.pieces &&
                    header.incarnation == header_.incarnation && header.sequence == header_.sequence;
  if (!fits) {
    clear();
    return false;
  }
  message_.append(frame.payload);
  ++next_;
  return next_ == header.pieces;
}

void MessageAssembler::clear() {
  message_ = std::string();
  header_ = FrameHeader();
  next_ = 0;
}

SequenceCheck::Verdict SequenceCheck::judge(FrameHeader const& header) const {
  bool const sameWriter = header.incarnation == incarnation_;
  bool const olderWriter = header.incarnation < incarnation_;
  switch (header.kind) {
    case FrameKind::snapshot:
    case FrameKind::absent:
      if (olderWriter || (sameWriter && header.sequence <= sequence_)) return Verdict::drop;
      return Verdict::apply;
    case FrameKind::delta:
      if (olderWriter) return Verdict::drop;
      if (!synchronised_ || !sameWriter) return Verdict::gap;
      if (header.sequence <= sequence_) return Verdict::drop;
      return header.sequence == sequence_ + 1 ? Verdict::apply : Verdict::gap;
    case FrameKind::beat:
      if (olderWriter) return Verdict::drop;
      return synchronised_ && sameWriter && header.sequence <= sequence_ ? Verdict::drop : Verdict::gap;
    default:
      return Verdict::drop;
  }
}

void SequenceCheck::writerIs(U64 incarnation) {
  synchronised_ = false;
  if (incarnation == incarnation_) return;
  incarnation_ = 0;
  sequence_ = 0;
}

void SequenceCheck::applied(FrameHeader const& header) {
  if (header.kind != FrameKind::delta) synchronised_ = true;
  incarnation_ = header.incarnation;
  sequence_ = header.sequence;
}

}  // namespace Rix
