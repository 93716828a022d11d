#include "sim/impl/store/PositionedFile.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace store {

namespace {

constexpr std::uint64_t smallestMapping = 64 << 20;
constexpr std::size_t mostAtOnce = 1 << 30; // one system call moves less than 2 GiB
constexpr std::size_t zerosAtOnce = 1 << 20;

FaultHook& Hook() {
  static FaultHook hook;
  return hook;
}

int Fault(char const* operation, int descriptor, std::uint64_t offset, void const* data, std::size_t bytes) {
  return Hook() ? Hook()(operation, descriptor, offset, data, bytes) : 0;
}

/// A write beyond the file-size limit would end the process; ignored, it is an error like any other. This
/// concerns the whole process, so a handler of the host stays.
void IgnoreSizeLimitSignal() {
  struct sigaction action {};
  if (sigaction(SIGXFSZ, nullptr, &action) == 0 && action.sa_handler == SIG_DFL) signal(SIGXFSZ, SIG_IGN);
}

bool KeepsReservations(int descriptor) {
  struct statfs facts {};
  if (fstatfs(descriptor, &facts) != 0) return false;
  constexpr unsigned long xfs = 0x58465342;
  auto const kind = static_cast<unsigned long>(facts.f_type);
  return kind == EXT4_SUPER_MAGIC || kind == TMPFS_MAGIC || kind == xfs || kind == OVERLAYFS_SUPER_MAGIC;
}

std::string Sentence(char const* operation, std::string const& path, std::string const& reason) {
  std::string text = std::string(operation) + " " + path + " failed: " + reason + ".";
  text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
  return text;
}

std::string Reason(int error, std::uint64_t offset, std::uint64_t length, std::int64_t freeBytes) {
  std::string text = std::strerror(error);
  if (length > 0) text += ", " + std::to_string(length) + " bytes at offset " + std::to_string(offset);
  if (freeBytes >= 0) text += ", " + std::to_string(freeBytes) + " bytes are free";
  return text;
}

bool IsReading(char const* operation) {
  return std::strcmp(operation, "reading") == 0 || std::strcmp(operation, "mapping") == 0;
}

int OpenFlags(PositionedFile::Mode mode) {
  switch (mode) {
  case PositionedFile::Mode::Read:
    return O_RDONLY;
  case PositionedFile::Mode::Write:
    return O_RDWR;
  case PositionedFile::Mode::Create:
    return O_RDWR | O_CREAT | O_EXCL;
  case PositionedFile::Mode::Replace:
    return O_RDWR | O_CREAT;
  }
  return O_RDONLY;
}

} // namespace

void SetFaultHook(FaultHook hook) { Hook() = std::move(hook); }

FileError::FileError(char const* operation, std::string const& path, int error, std::uint64_t offset,
                     std::uint64_t length, std::int64_t freeBytes)
    : m_text(Sentence(operation, path, Reason(error, offset, length, freeBytes))), m_error(error),
      m_isRead(IsReading(operation)) {}

FileError::FileError(char const* operation, std::string const& path, int error, std::string const& reason)
    : m_text(Sentence(operation, path, reason)), m_error(error), m_isRead(IsReading(operation)) {}

PositionedFile::PositionedFile(std::string path, Mode mode) : m_path(std::move(path)), m_mode(mode) {
  IgnoreSizeLimitSignal();
  Open();
  try {
    Lock();
    CheckIdentity();
    m_mapsSafely = KeepsReservations(m_descriptor);
    if (mode == Mode::Replace) Resize(0);
  } catch (...) {
    close(m_descriptor);
    throw;
  }
}

PositionedFile::~PositionedFile() {
  if (m_mapping != nullptr) munmap(m_mapping, m_mapped);
  close(m_descriptor);
}

void PositionedFile::Raise(char const* operation, int error, std::uint64_t offset,
                           std::uint64_t bytes) const {
  std::int64_t freeBytes = -1;
  struct statfs facts {};
  if ((error == ENOSPC || error == EDQUOT) && fstatfs(m_descriptor, &facts) == 0)
    freeBytes = static_cast<std::int64_t>(facts.f_bavail) * facts.f_bsize;
  throw FileError(operation, m_path, error, offset, bytes, freeBytes);
}

void PositionedFile::Open() {
  bool const isNew = m_mode == Mode::Create || m_mode == Mode::Replace;
  // Without blocking: opening a pipe for reading would wait for a writer.
  m_descriptor = open(m_path.c_str(), OpenFlags(m_mode) | O_CLOEXEC | O_NONBLOCK, 0666);
  if (m_descriptor < 0) throw FileError(isNew ? "creating" : "opening", m_path, errno, 0, 0, -1);
}

void PositionedFile::Lock() const {
  if (flock(m_descriptor, (IsReadOnly() ? LOCK_SH : LOCK_EX) | LOCK_NB) == 0) return;
  if (errno != EWOULDBLOCK) throw FileError("locking", m_path, errno, 0, 0, -1);
  throw FileError("opening", m_path, EWOULDBLOCK,
                  IsReadOnly() ? "another process, or this one, has it open for writing"
                               : "another process, or this one, has it open; a writer must be alone");
}

/// The name must still be that of the file that was locked: it may have been deleted or renamed in between.
void PositionedFile::CheckIdentity() {
  struct stat mine {};
  struct stat named {};
  if (fstat(m_descriptor, &mine) != 0) throw FileError("opening", m_path, errno, 0, 0, -1);
  if (!S_ISREG(mine.st_mode)) throw FileError("opening", m_path, ENODEV, "it is not a regular file");
  if (stat(m_path.c_str(), &named) != 0 || named.st_ino != mine.st_ino || named.st_dev != mine.st_dev)
    throw FileError("opening", m_path, ENOENT, "it was deleted or replaced meanwhile");
  m_device = mine.st_dev;
  m_inode = mine.st_ino;
  m_size = static_cast<std::uint64_t>(mine.st_size);
}

void PositionedFile::ReadZeroFilled(std::uint64_t offset, void* to, std::size_t bytes) const {
  auto* at = static_cast<char*>(to);
  while (bytes > 0) {
    ssize_t const done = pread(m_descriptor, at, std::min(bytes, mostAtOnce), static_cast<off_t>(offset));
    if (done < 0 && errno == EINTR) continue;
    if (done < 0) Raise("reading", errno, offset, bytes);
    if (done == 0) break;
    at += done;
    offset += static_cast<std::uint64_t>(done);
    bytes -= static_cast<std::size_t>(done);
  }
  std::memset(at, 0, bytes);
}

void PositionedFile::ReadAt(std::uint64_t offset, void* to, std::size_t bytes) const {
  if (offset > m_size || bytes > m_size - offset)
    throw FileError("reading", m_path, EIO,
                    std::to_string(bytes) + " bytes at offset " + std::to_string(offset) +
                        " are wanted, the file has " + std::to_string(m_size));
  ReadZeroFilled(offset, to, bytes);
}

void PositionedFile::WriteAt(std::uint64_t offset, void const* from, std::size_t bytes) {
  if (int const error = Fault("write", m_descriptor, offset, from, bytes))
    Raise("writing", error, offset, bytes);
  auto const* at = static_cast<char const*>(from);
  while (bytes > 0) {
    ssize_t const done = pwrite(m_descriptor, at, std::min(bytes, mostAtOnce), static_cast<off_t>(offset));
    if (done < 0 && errno == EINTR) continue;
    if (done <= 0) Raise("writing", done < 0 ? errno : EIO, offset, bytes);
    at += done;
    offset += static_cast<std::uint64_t>(done);
    bytes -= static_cast<std::size_t>(done);
    m_size = std::max(m_size, offset);
  }
}

void PositionedFile::Resize(std::uint64_t size) {
  int error = Fault("resize", m_descriptor, size, nullptr, 0);
  if (error == 0 && ftruncate(m_descriptor, static_cast<off_t>(size)) != 0) error = errno;
  if (error != 0) Raise("resizing", error, size, 0);
  m_size = size;
}

void PositionedFile::Sync() {
  int error = Fault("sync", m_descriptor, 0, nullptr, 0);
  if (error == 0 && fsync(m_descriptor) != 0) error = errno;
  if (error != 0) Raise("flushing", error, 0, 0);
}

void PositionedFile::SyncFolder() const {
  std::size_t const slash = m_path.rfind('/');
  std::string const folder = slash == std::string::npos ? "." : slash == 0 ? "/" : m_path.substr(0, slash);
  int const descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) return; // a folder that may be entered but not read
  int const result = fsync(descriptor);
  int const error = errno;
  close(descriptor);
  if (result != 0 && error != EINVAL) throw FileError("flushing the folder of", m_path, error, 0, 0, -1);
}

bool PositionedFile::Reserve(std::uint64_t from, std::uint64_t to) {
  if (to <= from) return true;
  int error = Fault("reserve", m_descriptor, from, nullptr, to - from);
  if (error == 0) {
    do {
      error = fallocate(m_descriptor, 0, static_cast<off_t>(from), static_cast<off_t>(to - from)) != 0 ? errno
                                                                                                       : 0;
    } while (error == EINTR);
  }
  bool const isSupported = error != EOPNOTSUPP;
  if (isSupported && error != 0) Raise("reserving space in", error, from, to - from);
  if (!isSupported) {
    m_mapsSafely = false;
    if (to > m_size) Resize(to);
  }
  m_size = std::max(m_size, to);
  return isSupported;
}

void PositionedFile::Zero(std::uint64_t offset, std::uint64_t bytes) {
  std::uint64_t const end = offset + bytes;
  std::uint64_t const inFrom = std::min((offset + pageBytes - 1) / pageBytes * pageBytes, end);
  std::uint64_t const inTo = std::max(end / pageBytes * pageBytes, inFrom);
  std::vector<char> const zeros(std::min<std::uint64_t>(zerosAtOnce, std::max(bytes, pageBytes)), 0);
  auto const write = [&](std::uint64_t from, std::uint64_t to) {
    for (; from < to; from += std::min<std::uint64_t>(zeros.size(), to - from))
      WriteAt(from, zeros.data(), std::min<std::uint64_t>(zeros.size(), to - from));
  };
  write(offset, inFrom);
  if (inTo > inFrom) {
    auto const at = static_cast<off_t>(inFrom);
    auto const length = static_cast<off_t>(inTo - inFrom);
    constexpr int punch = FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE;
    if (fallocate(m_descriptor, FALLOC_FL_ZERO_RANGE, at, length) == 0) {
      m_size = std::max(m_size, inTo);
    } else if (m_mapsSafely && fallocate(m_descriptor, punch, at, length) == 0) {
      Reserve(inFrom, inTo); // tmpfs has holes, but no zero ranges
    } else {
      write(inFrom, inTo);
    }
  }
  write(inTo, end);
}

std::byte* PositionedFile::MapFurther(std::uint64_t offset, std::uint64_t bytes) {
  if (offset > m_size || bytes > m_size - offset)
    throw FileError("mapping", m_path, EFAULT,
                    std::to_string(bytes) + " bytes at offset " + std::to_string(offset) +
                        " are wanted, the file has " + std::to_string(m_size));
  // Twice what is there, so that a growing file is not mapped anew each time. Bytes behind the end are not
  // touched before the file has them.
  std::uint64_t const wanted =
      std::max((2 * m_size + pageBytes - 1) / pageBytes * pageBytes, smallestMapping);
  int const protection = IsReadOnly() ? PROT_READ : PROT_READ | PROT_WRITE;
  void* const place = m_mapping != nullptr ? mremap(m_mapping, m_mapped, wanted, MREMAP_MAYMOVE)
                                           : mmap(nullptr, wanted, protection, MAP_SHARED, m_descriptor, 0);
  if (place == MAP_FAILED) Raise("mapping", errno, 0, wanted);
  m_mapping = static_cast<std::byte*>(place);
  m_mapped = wanted;
  return m_mapping + offset;
}

} // namespace store
