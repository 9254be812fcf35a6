// The directory in which one run keeps its files: sockets, tables, reports. It is locked for as long as any process
// of the run lives, so that what a killed run left behind is told from a run in progress, and removed at the next
// start. Nothing of a run is kept elsewhere.
#pragma once

#include <string>

#include "platform/Descriptor.h"

namespace Lab {

class RunDirectory {
 public:
  // Removes what killed runs of this user left in `base`, then makes a new directory there, named zeb-lab and six
  // characters. Throws LabError.
  explicit RunDirectory(const std::string& base = defaultBase());
  RunDirectory(const RunDirectory&) = delete;
  // Removes the directory with all that is in it. A process that was forked while this object lived must not run
  // this, but keeps the lock until it ends.
  ~RunDirectory();

  const std::string& path() const { return path_; }
  int lock() const { return lock_.fd(); }  // to be kept open in every process of the run

  // $XDG_RUNTIME_DIR if that is a directory that can be written to, else /tmp.
  static std::string defaultBase();

 private:
  std::string path_;
  Platform::Descriptor lock_;
};

}  // namespace Lab
