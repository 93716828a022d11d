#include "mtx/impl/exchange/FileInput.h"

#include "mtx/ORXSrvMtxOpenFileException.h"
#include "mtx/impl/matrix/ORXSrvMtxErrors.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace orx {

namespace {
constexpr auto& sourceFile = orx::exchangeSource;
}

// Does not wait for the writer of a pipe (O_NONBLOCK): pipes are refused.
FileInput::FileInput(char const* path) : m_path(path), m_file(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
  if (m_file < 0) ORXSrvMtxOpenFileException(path).Throw(sourceFile, __LINE__);
  struct stat facts {};
  bool const isKnown = fstat(m_file, &facts) == 0;
  if (!isKnown || !S_ISREG(facts.st_mode)) {
    int const cause = isKnown ? EISDIR : errno;
    close(m_file);
    FailAsWhole(isKnown && !S_ISDIR(facts.st_mode) ? "a regular file expected, found a pipe or a device"
                                                   : std::strerror(cause));
  }
  m_size = facts.st_size;
}

FileInput::~FileInput() { close(m_file); }

void FileInput::ReadBytes(void* out, std::int64_t bytes) {
  // The system reads at most 2 GiB at once.
  constexpr std::int64_t longest = std::int64_t{1} << 30;
  auto* to = static_cast<char*>(out);
  for (std::int64_t left = bytes; left > 0;) {
    ssize_t const read = pread(m_file, to, static_cast<std::size_t>(std::min(left, longest)), m_offset);
    if (read < 0 && errno == EINTR) continue;
    if (read < 0) FailAsWhole(std::strerror(errno));
    if (read == 0) Fail(m_offset, std::to_string(left) + " more bytes expected, found the end of the file");
    to += read;
    m_offset += read;
    left -= read;
  }
}

void FileInput::FailShort(std::int64_t count, std::int64_t elementBytes, char const* what) const {
  Fail(m_offset, std::to_string(count) + " " + what + " of " + std::to_string(elementBytes) +
                     " bytes expected, found " + std::to_string(m_size - m_offset) +
                     " bytes to the end of the file");
}

void FileInput::Fail(std::int64_t offset, std::string const& fault) const {
  ORXSrvMtxOpenFileException((m_path + ", byte " + std::to_string(offset) + ": " + fault).c_str())
      .Throw(sourceFile, __LINE__);
}

void FileInput::FailAsWhole(std::string const& fault) const {
  ORXSrvMtxOpenFileException((m_path + ": " + fault).c_str()).Throw(sourceFile, __LINE__);
}

} // namespace orx
