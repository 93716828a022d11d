#include "tools/formats/UnnamedFile.h"

#include "tools/terminal/ToolError.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace orx::tool {
namespace {

[[noreturn]] void FailToWrite(std::string const& path) {
  throw ToolError(ExitCode::Failure,
                  "cannot write the temporary file '" + path + "': " + std::strerror(errno));
}

bool WriteAll(int target, char const* bytes, std::size_t count) {
  while (count > 0) {
    ssize_t const written = write(target, bytes, count);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    bytes += written;
    count -= static_cast<std::size_t>(written);
  }
  return true;
}

/// The bytes read, 0 at the end, less than 0 with errno.
ssize_t ReadSome(int source, std::array<char, 65536>& buffer) {
  ssize_t count = 0;
  do
    count = read(source, buffer.data(), buffer.size());
  while (count < 0 && errno == EINTR);
  return count;
}

} // namespace

UnnamedFile::UnnamedFile() {
  char const* const folder = std::getenv("TMPDIR");
  std::string path = std::string(folder != nullptr && *folder != '\0' ? folder : "/tmp") + "/orxmtx-XXXXXX";
  m_file = mkostemp(path.data(), O_CLOEXEC);
  if (m_file < 0) FailToWrite(path);
  unlink(path.c_str());
}

UnnamedFile::~UnnamedFile() { close(m_file); }

std::string UnnamedFile::Path() const { return "/proc/self/fd/" + std::to_string(m_file); }

bool UnnamedFile::FillFrom(int source) const {
  std::array<char, 65536> buffer{};
  ssize_t count = 0;
  while ((count = ReadSome(source, buffer)) > 0)
    if (!WriteAll(m_file, buffer.data(), static_cast<std::size_t>(count))) FailToWrite("of the input");
  return count == 0;
}

Descriptor::Descriptor(std::string const& path, int access)
    : m_number(path != "-" ? open(path.c_str(), access | O_CLOEXEC)
                           : dup(access == O_RDONLY ? STDIN_FILENO : STDOUT_FILENO)) {}

Descriptor::~Descriptor() {
  int const reason = errno;
  if (IsOpen()) close(m_number);
  errno = reason;
}

bool UnnamedFile::CopyTo(int target) const {
  std::array<char, 65536> buffer{};
  if (lseek(m_file, 0, SEEK_SET) < 0) return false;
  ssize_t count = 0;
  while ((count = ReadSome(m_file, buffer)) > 0)
    if (!WriteAll(target, buffer.data(), static_cast<std::size_t>(count))) return false;
  return count == 0;
}

} // namespace orx::tool
