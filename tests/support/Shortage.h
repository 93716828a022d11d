#pragma once

// Disks and memory that are short while an object lives.

#include "tests/support/Uncopied.h"

#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <sys/resource.h>
#include <unistd.h>

/// While it lives, files cannot grow beyond one byte, as on a full disk.
class FullDisk : Uncopied {
public:
  FullDisk() : m_onSignal(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &m_before);
    rlimit full = m_before;
    full.rlim_cur = 1;
    setrlimit(RLIMIT_FSIZE, &full);
  }
  ~FullDisk() {
    setrlimit(RLIMIT_FSIZE, &m_before);
    std::signal(SIGXFSZ, m_onSignal);
  }

private:
  rlimit m_before{};
  void (*m_onSignal)(int);
};

#ifndef __SANITIZE_ADDRESS__ // which needs addresses without end
/// While it lives, there are only so many MB of memory: what earlier tests have left free in the heap is
/// taken, too.
class ShortOfMemory : Uncopied {
public:
  explicit ShortOfMemory(std::int64_t megabytes) {
    std::int64_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    getrlimit(RLIMIT_AS, &m_before);
    SetLimit(pages * sysconf(_SC_PAGESIZE));
    for (std::size_t bytes = std::size_t{64} << 20; bytes >= std::size_t{64} << 10; bytes /= 2)
      while (auto* const block = static_cast<Block*>(std::malloc(bytes))) {
        block->next = m_taken;
        m_taken = block;
      }
    SetLimit(pages * sysconf(_SC_PAGESIZE) + (megabytes << 20));
  }
  ~ShortOfMemory() {
    setrlimit(RLIMIT_AS, &m_before);
    while (m_taken != nullptr) {
      Block* const next = m_taken->next;
      std::free(m_taken);
      m_taken = next;
    }
  }

private:
  struct Block {
    Block* next;
  };

  void SetLimit(std::int64_t bytes) const {
    rlimit small = m_before;
    small.rlim_cur = static_cast<rlim_t>(bytes);
    setrlimit(RLIMIT_AS, &small);
  }

  rlimit m_before{};
  Block* m_taken = nullptr;
};
#endif
