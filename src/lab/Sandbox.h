// A process tree of its own: everything that a run starts lives below one first process, in a PID, network, UTS and,
// for an ordinary user, user namespace that nothing outside sees or can name. When the first process ends, for
// whatever reason, the kernel ends all the others; when the process that started it ends, so does the first one.
// So a run cannot leave a process or a namespace behind, however it is killed.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

#include "platform/Descriptor.h"

namespace Lab {

class Sandbox {
 public:
  // What the first process of a sandbox is given.
  struct Inside {
    int stop;    // readable when the sandbox is asked to end
    int result;  // what is written here is what `wait` returns
    int alive;   // to be kept open in every process that is forked here
  };

  // Forks the first process, in which `body` runs with all privileges inside its namespaces; what it returns is the
  // exit status. Throws LabError in one line if this machine does not allow namespaces. The caller must have a
  // single thread.
  explicit Sandbox(const std::function<int(const Inside&)>& body);
  Sandbox(const Sandbox&) = delete;
  ~Sandbox();  // kills what is still there and waits for it

  // The process outside the sandbox that started the first one and ends with it; for tests, to kill it.
  pid_t pid() const { return pid_; }

  // Asks the first process to end.
  void stop();
  // Readable when there is a result or the sandbox has ended.
  int ready() const { return result_.fd(); }
  // Waits until nothing of the sandbox is left. Returns the result; `status` becomes the first process's exit status,
  // or 128 and the signal that killed it.
  std::string wait(int& status);

 private:
  Platform::Descriptor stop_;
  Platform::Descriptor stopReader_;  // so that asking when nobody is left to hear is no error
  Platform::Descriptor result_;
  Platform::Descriptor alive_;
  pid_t pid_ = -1;
};

}  // namespace Lab
