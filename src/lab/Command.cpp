// See the header. The child's streams are files in memory that both processes share.
#include "lab/Command.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "platform/Descriptor.h"

namespace Lab {

namespace {

constexpr int cannotStart = 127;

Platform::Descriptor memoryFile(const std::string& content) {
  Platform::Descriptor file(::memfd_create("zeb-lab", MFD_CLOEXEC));
  if (!file) throw LabError(std::string("memfd_create: ") + std::strerror(errno));
  std::size_t done = 0;
  while (done < content.size()) {
    const ssize_t written = ::write(file.fd(), content.data() + done, content.size() - done);
    if (written < 0) throw LabError(std::string("write to memory: ") + std::strerror(errno));
    done += static_cast<std::size_t>(written);
  }
  ::lseek(file.fd(), 0, SEEK_SET);
  return file;
}

std::string contentOf(const Platform::Descriptor& file) {
  std::string content;
  char buffer[4096];
  off_t at = 0;
  for (ssize_t got = 0; (got = ::pread(file.fd(), buffer, sizeof buffer, at)) > 0; at += got)
    content.append(buffer, static_cast<std::size_t>(got));
  return content;
}

[[noreturn]] void runChild(const Command& command, int input, int output, int errors) {
  try {
    if (command.prepare) command.prepare();
  } catch (const std::exception& error) {
    ::dprintf(errors, "%s", error.what());
    ::_exit(cannotStart);
  }
  ::dup2(input, STDIN_FILENO);
  ::dup2(output, STDOUT_FILENO);
  ::dup2(errors, STDERR_FILENO);
  sigset_t none;
  sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  // An ordinary user's path often lacks the directories in which Debian keeps nft.
  const char* path = std::getenv("PATH");
  ::setenv("PATH", (std::string(path ? path : "/usr/bin:/bin") + ":/usr/sbin:/sbin").c_str(), 1);
  std::vector<char*> words;
  for (const std::string& word : command.words) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  ::execvp(words[0], words.data());
  ::dprintf(STDERR_FILENO, "cannot run %s: %s", words[0], std::strerror(errno));
  ::_exit(cannotStart);
}

std::string oneLine(std::string text) {
  while (!text.empty() && text.back() == '\n') text.pop_back();
  for (std::size_t at = 0; (at = text.find('\n', at)) != std::string::npos; at += 2) text.replace(at, 1, "; ");
  return text.substr(0, 500);
}

}  // namespace

CommandOutput tryCommand(const Command& command) {
  const Platform::Descriptor input = memoryFile(command.input);
  const Platform::Descriptor output = memoryFile({});
  const Platform::Descriptor errors = memoryFile({});
  const pid_t pid = ::fork();
  if (pid < 0) throw LabError(std::string("fork: ") + std::strerror(errno));
  if (pid == 0) runChild(command, input.fd(), output.fd(), errors.fd());
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0)
    if (errno != EINTR) throw LabError(std::string("waitpid: ") + std::strerror(errno));
  const int code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  CommandOutput result{code, contentOf(output), contentOf(errors)};
  if (code == cannotStart) throw LabError(oneLine(result.errors));
  return result;
}

std::string runCommand(const Command& command) {
  CommandOutput result = tryCommand(command);
  if (result.status == 0) return std::move(result.output);
  std::string text;
  for (const std::string& word : command.words) text += word + " ";
  throw LabError(text + "failed with status " + std::to_string(result.status) + ": " + oneLine(result.errors));
}

}  // namespace Lab
