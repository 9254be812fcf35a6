// Any bytes as what comes over a link: a frame, or a message to a replica. The first byte says which: 0 a frame, else
// the tree (1, 4, 7: orders, status, configuration) and what comes to it (delta, a snapshot of its writer, one of a new
// writer). What is refused must have changed nothing, and what is taken must leave a replica that its writer can mend.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "model/gen/Config.h"
#include "model/gen/ProbeStream.h"
#include "runtime/AttributeLog.h"
#include "runtime/Frames.h"
#include "runtime/Json.h"
#include "runtime/Replica.h"
#include "runtime/Type.h"

namespace {

Rix::Ptr<Rix::Entity> orders() {
  auto made = Rix::make<Zeb::ZebSonarConfigV1>();
  made->transmitterIs("p1:a")->hopsRateIs(1, {10, 1});
  return made;
}
Rix::Ptr<Rix::Entity> status() {
  auto made = Rix::make<Zeb::ZebSonarStatusV1>();
  auto* record = made->probeStreamTable()->streamRecordIs(Zeb::ProbeStreamId());
  record->ingressRecordIs(1)->ingressStatsIs()->probesReceivedIs(5);
  return made;
}
Rix::Ptr<Rix::Entity> configuration() {
  auto made = Rix::make<Zeb::ClientConfig>();
  made->groupIs("leaves")->interfaceIpIs("lo", Netkit::IpAddr(1));
  return made;
}

void takeMessage(Rix::Ptr<Rix::Entity> const& tree, int kind, std::string_view payload) {
  auto const newWriter = kind == 2 ? Rix::Replica::NewWriter::replaces : Rix::Replica::NewWriter::patches;
  Rix::AttributeLog log(tree);
  Rix::Replica replica(*tree->fwkType().record(), newWriter, [](Rix::Ptr<Rix::Entity> const&) {});
  replica.snapshot(log.snapshot(), false);
  std::string const before = Rix::jsonText(*replica.root());
  try {
    if (kind == 0) {
      replica.delta(payload);
    } else {
      replica.snapshot(payload, kind == 1);
    }
  } catch (Rix::FrameException const&) {
    if (Rix::jsonText(*replica.root()) != before) std::abort();
  }
  replica.snapshot(log.snapshot(), true);
  if (Rix::jsonText(*replica.root()) != before || replica.records() != log.records()) std::abort();
}

void takeFrames(std::string_view bytes) {
  static Rix::MessageAssembler assembler;
  try {
    if (assembler.take(Rix::readFrame(bytes)) && assembler.message().size() > Rix::maxMessageSize) std::abort();
  } catch (Rix::FrameException const&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  std::string_view const rest(reinterpret_cast<const char*>(data) + 1, size - 1);
  int const what = data[0] % 10;
  if (what == 0) {
    takeFrames(rest);
  } else {
    takeMessage(what <= 3 ? orders() : what <= 6 ? status() : configuration(), (what - 1) % 3, rest);
  }
  return 0;
}
