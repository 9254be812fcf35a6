// Where a failed assertion goes: to standard error and the end of the process, or to the host that asked for it.
#include "runtime/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace Rix {
namespace {
bool assertionThrows = false;
}

void assertionThrowsIs(bool throws) {
  assertionThrows = throws;
}

void assertionFailed(char const* expression, char const* file, int line, std::string const& operands) {
  std::ostringstream text;
  text << file << ':' << line << ": assertion failed: " << expression;
  if (!operands.empty()) text << " with" << operands;
  if (assertionThrows) throw AssertionFailure{text.str()};
  std::fprintf(stderr, "%s\n", text.str().c_str());
  std::fflush(stderr);
  std::abort();
}

}  // namespace Rix
