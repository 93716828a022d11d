#include "tools/terminal/Interruption.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <sys/syscall.h>
#include <unistd.h>

namespace orx::tool {
namespace {

/// Paths that the signal handler removes; an empty one is free. Arrays, because it may run at any time.
std::array<std::array<char, 4096>, 8> remembered{};

bool IsDots(char const* name) { return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0; }

/// Removes a file, or a folder with all that is in it, by system calls alone: a signal handler may make no
/// others, so that the folder is not read by readdir, which allocates.
void RemoveTree(int parent, char const* name) {
  if (unlinkat(parent, name, 0) == 0) return;
  int const folder = openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (folder < 0) return;
  alignas(dirent64) std::array<char, 4096> entries;
  for (long length = 1; length > 0;) {
    length = syscall(SYS_getdents64, folder, entries.data(), entries.size());
    for (long at = 0; at < length;) {
      auto const* const entry = reinterpret_cast<dirent64 const*>(entries.data() + at);
      if (!IsDots(entry->d_name)) RemoveTree(folder, entry->d_name);
      at += entry->d_reclen;
    }
  }
  close(folder);
  unlinkat(parent, name, AT_REMOVEDIR);
}

extern "C" void RemoveRemembered(int signal) {
  for (auto const& path : remembered)
    if (path[0] != '\0') RemoveTree(AT_FDCWD, path.data());
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

void HandleSignals() {
  for (int const signal : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction present {};
    if (sigaction(signal, nullptr, &present) == 0 && present.sa_handler == SIG_DFL)
      std::signal(signal, RemoveRemembered);
  }
}

} // namespace

void RemovedWhenInterrupted::Remember(std::string const& path) {
  Forget();
  auto const slot = std::ranges::find(remembered, '\0', [](auto const& known) { return known[0]; });
  if (path.empty() || slot == remembered.end() || path.size() >= slot->size()) return;
  std::copy(path.begin() + 1, path.end(), slot->begin() + 1);
  (*slot)[path.size()] = '\0';
  (*slot)[0] = path[0]; // last, so that the handler never sees half a path
  m_slot = static_cast<int>(slot - remembered.begin());
  HandleSignals();
}

void RemovedWhenInterrupted::Forget() noexcept {
  if (m_slot >= 0) remembered[m_slot][0] = '\0';
  m_slot = -1;
}

std::vector<std::string> PathsRemovedWhenInterrupted() {
  std::vector<std::string> paths;
  for (auto const& path : remembered)
    if (path[0] != '\0') paths.emplace_back(path.data());
  return paths;
}

WorkFolder::WorkFolder() {
  std::error_code failure;
  std::string path = (std::filesystem::temp_directory_path(failure) / "orxmtx-XXXXXX").string();
  if (failure || mkdtemp(path.data()) == nullptr) return;
  m_path = path;
  m_removal.Remember(m_path);
}

WorkFolder::~WorkFolder() {
  if (m_path.empty()) return;
  std::error_code ignored;
  std::filesystem::remove_all(m_path, ignored);
}

} // namespace orx::tool
