#pragma once

#include <cstdint>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace orx::tool {

/// A file whose bytes are looked at here and there. What is no regular file is not opened: a pipe can be
/// opened only once.
class Probe {
public:
  explicit Probe(std::string const& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return;
    m_file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    m_isRegular = m_file >= 0;
    m_size = status.st_size;
  }
  Probe(Probe const&) = delete;
  Probe& operator=(Probe const&) = delete;
  ~Probe() {
    if (m_file >= 0) close(m_file);
  }

  bool IsRegular() const noexcept { return m_isRegular; }
  std::int64_t Size() const noexcept { return m_size; }
  std::string Begin(std::size_t length) const {
    std::string bytes(length, '\0');
    ssize_t const read = pread(m_file, bytes.data(), length, 0);
    bytes.resize(read > 0 ? static_cast<std::size_t>(read) : 0);
    return bytes;
  }
  /// False where the file ends before.
  template<class T>
  bool Read(std::int64_t offset, T& value) const {
    return pread(m_file, &value, sizeof value, offset) == static_cast<ssize_t>(sizeof value);
  }

private:
  int m_file = -1;
  std::int64_t m_size = 0;
  bool m_isRegular = false;
};

} // namespace orx::tool
