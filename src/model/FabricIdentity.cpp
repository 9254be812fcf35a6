// What the exchange of state needs to know of system ids: whether a text is one, and how to hand one on.
#include "model/SystemId.h"
#include "runtime/Fabric.h"

namespace Fabric {

bool isSystemIdText(std::string_view text) {
  SystemId const id = systemIdFromString(text);
  return !id.isEmpty() && id.stringValue() == text;
}

void tellMountState(FabricdbServiceMounter& mounter, std::string_view systemIdText, Rix::String8 const& groupName,
                    MountState state) {
  mounter.doHandleFabricMountState(systemIdFromString(systemIdText), groupName, state);
}

}  // namespace Fabric
