// Assertions: always on, printing the expression's text, the operands given beside it, file and line.
//
// A failed assertion ends the process: a condition that the design declares impossible is never guarded quietly.
// A host that runs many agents in one process (the simulation) may ask for AssertionFailure to be thrown instead;
// it derives from nothing, so that no visit of notifiees catches it.
#pragma once

#include <sstream>
#include <string>

namespace Rix {

struct AssertionFailure {
  std::string text;
};

// True: a failed assertion throws AssertionFailure. False (the default): it prints to standard error and aborts.
void assertionThrowsIs(bool throws);

[[noreturn]] void assertionFailed(char const* expression, char const* file, int line, std::string const& operands);

template <class... Operands>
[[noreturn]] void assertionFailedWith(char const* expression, char const* file, int line, Operands const&... operands) {
  std::ostringstream text;
  ((text << ' ' << operands), ...);
  assertionFailed(expression, file, line, text.str());
}

}  // namespace Rix

// RIX_ASSERT(expression, operands to print...)
#define RIX_ASSERT(expression, ...) RIX_ASSERT_TEXT(expression, #expression __VA_OPT__(, ) __VA_ARGS__)
// The same with a text of its own, where the expression's text is part of the behaviour.
#define RIX_ASSERT_TEXT(expression, text, ...)          \
  (static_cast<bool>(expression) ? static_cast<void>(0) \
                                 : ::Rix::assertionFailedWith(text, __FILE__, __LINE__ __VA_OPT__(, ) __VA_ARGS__))
