#pragma once

// Work in a process of its own, which may end badly.

#include "tests/support/Uncopied.h"

#include <functional>
#include <new>
#include <sys/mman.h>
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

/// A value that child processes share.
template<class Value>
class Shared : Uncopied {
public:
  Shared() : m_value(new (Memory()) Value()) {}
  ~Shared() { munmap(m_value, sizeof(Value)); }
  Value* operator->() const { return m_value; }
  Value& operator*() const { return *m_value; }

private:
  static void* Memory() {
    void* const memory =
        mmap(nullptr, sizeof(Value), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::bad_alloc();
    return memory;
  }

  Value* m_value;
};
