#pragma once

#include "sim/ORXSimException.h"

#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <unistd.h>

/// A temporary folder that is the current directory as long as it lives; it goes away with its files.
class WorkingFolder {
public:
  WorkingFolder() : m_before(std::filesystem::current_path()) {
    std::string name = (std::filesystem::temp_directory_path() / "orx-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
    m_path = name;
    std::filesystem::current_path(m_path);
  }
  WorkingFolder(WorkingFolder const&) = delete;
  WorkingFolder& operator=(WorkingFolder const&) = delete;
  ~WorkingFolder() {
    std::error_code ignored;
    std::filesystem::current_path(m_before, ignored);
    std::filesystem::remove_all(m_path, ignored);
  }

  std::set<std::string> Files() const {
    std::set<std::string> names;
    for (auto const& file : std::filesystem::directory_iterator(m_path))
      names.insert(file.path().filename().string());
    return names;
  }

private:
  std::filesystem::path m_before;
  std::filesystem::path m_path;
};

/// While it lives, files cannot grow beyond one byte, as on a full disk.
class FullDisk {
public:
  FullDisk() : m_onSignal(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &m_before);
    rlimit full = m_before;
    full.rlim_cur = 1;
    setrlimit(RLIMIT_FSIZE, &full);
  }
  FullDisk(FullDisk const&) = delete;
  FullDisk& operator=(FullDisk const&) = delete;
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
class ShortOfMemory {
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
  ShortOfMemory(ShortOfMemory const&) = delete;
  ShortOfMemory& operator=(ShortOfMemory const&) = delete;
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

/// The code of the database error that the call ends with; 0 without one.
template<class Call>
int DatabaseError(Call call) {
  try {
    call();
  } catch (ORXSimException const& e) {
    return e.Code();
  }
  return 0;
}
