// Runs one of the system's own programs to its end and hands back what it printed. The fabric drives `ip` and `nft`
// by it. What it is given as input and what it prints is held in memory, so nothing here can block on a pipe.
#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace Lab {

// Something that the lab needs from this machine and does not get. `what()` is one line.
class LabError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct Command {
  std::vector<std::string> words;  // the program, sought in PATH and where administrators' programs are, and arguments
  std::string input = {};
  // Called in the child before the program, with the descriptors of this process; to enter namespaces.
  std::function<void()> prepare = {};
};

struct CommandOutput {
  int status;  // as exit() gave it; 128 + the signal if it was killed
  std::string output;
  std::string errors;
};

// Throws LabError if the program cannot be started.
CommandOutput tryCommand(const Command& command);

// The same, and throws LabError with what the program said if its status is not 0. Returns its output.
std::string runCommand(const Command& command);

}  // namespace Lab
