// What the benchmarks share that print one row for each size: the processor's time, the memory in use, a process of its
// own for each row, and the numbers on their command lines.
#pragma once

#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "runtime/Types.h"

namespace Rows {

// Of the processor: with one thread that is what the clock would show on a machine that does nothing else.
template <class Action>
double seconds(Action const& action) {
  auto const now = [] {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
  };
  double const start = now();
  action();
  return now() - start;
}

// All memory that is in use, in bytes, with what the allocator adds to each block.
inline std::size_t usedMemory() {
  struct mallinfo2 const info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

// Runs `row` in a child, so that its memory is its own. If it does not end well, neither does this program.
template <class Row>
void inItsOwnProcess(Row const& row) {
  pid_t const child = fork();
  if (child == 0) {
    row();
    std::_Exit(0);
  }
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) < 0 || status != 0) std::exit(1);
}

// An argument of the command line. Ends the program with status 2 if it is no number from `least` to `most`.
inline U32 number(char const* program, char const* text, U32 least, U32 most) {
  U32 value = 0;
  char const* const end = text + std::strlen(text);
  auto const [parsed, error] = std::from_chars(text, end, value);
  if (error != std::errc() || parsed != end || value < least || value > most) {
    std::fprintf(stderr, "%s: \"%s\": expected a number from %u to %u\n", program, text, least, most);
    std::exit(2);
  }
  return value;
}

}  // namespace Rows
