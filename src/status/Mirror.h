// The one form of every handler of a mirror: what the source holds goes to the target; where the source is gone, the
// attribute's default does; without a target nothing happens.
#pragma once

#include <type_traits>

namespace Zeb {

template <class Source, class Target, class Read, class Written>
void mirrorAttribute(Source const* source, Read (Source::*read)() const, Target* target,
                     void (Target::*write)(Written)) {
  if (!target) return;
  if (source) {
    (target->*write)((source->*read)());
  } else {
    (target->*write)(std::remove_cvref_t<Written>{});
  }
}

}  // namespace Zeb
