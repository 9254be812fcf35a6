// Each failure carries its own type and its whole text.
#include "runtime/Exceptions.h"

#include <gtest/gtest.h>

namespace Rix {
namespace {

template <class Failure, class Raise>
std::string textOf(Raise raise) {
  try {
    raise();
  } catch (Failure const& failure) {
    return failure.what();
  }
  return "nothing was raised";
}

TEST(Exceptions, CarryTheirText) {
  EXPECT_EQ(textOf<RangeException>([] { throwRangeException("null ValidPtr"); }), "null ValidPtr");
  EXPECT_EQ(textOf<NameInUseException>([] { throwNameInUseException("leaf1"); }), "leaf1");
}

TEST(Exceptions, OfATextFormNameTheAttribute) {
  EXPECT_EQ(textOf<DeserializeException>([] { rethrowFromDeserializeAttr("ttl", std::runtime_error("no number")); }),
            "cannot read attribute 'ttl': no number");
}

}  // namespace
}  // namespace Rix
