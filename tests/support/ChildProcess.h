#pragma once

// Work in a process of its own, which may end badly.

#include <functional>
#include <sys/wait.h>
#include <unistd.h>

/// Runs work in a child process: its result, which is then the exit code, or minus the signal that ended it.
inline int RunInChild(std::function<int()> const& work) {
  pid_t const child = fork();
  if (child == 0) {
    try {
      _exit(work());
    } catch (...) {
      _exit(99);
    }
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}
