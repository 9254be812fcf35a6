// Looks the ends of a stream up in the root object of the present activity.
#include "model/StreamText.h"

#include "central/ZebRoot.h"

namespace Zeb {

std::string probeStreamStringValue(ProbeStreamId const& streamId) {
  Rix::Ptr<Root> const root = zebRoot();
  std::string text(streamSrcHostname(root, streamId).view());
  text += "->";
  text += streamDstHostname(root, streamId).view();
  return text + ' ' + streamId.srcEthAddr().stringValue() + "->" + streamId.dstEthAddr().stringValue();
}

}  // namespace Zeb
