#include "sim/impl/store/PositionedFile.h"

#include <algorithm>
#include <cctype>
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

namespace orx::store {

namespace {

using Access = FileError::Access;

constexpr std::uint64_t pageBytes = 4096;
constexpr std::uint64_t mappingUnit = std::uint64_t{2} << 20;
constexpr std::uint64_t smallestMapping = std::uint64_t{64} << 20;
constexpr std::size_t mostAtOnce = std::size_t{1} << 30; // one system call moves less than 2 GiB
constexpr std::uint64_t zerosAtOnce = std::uint64_t{1} << 20;

FaultHook& Hook() {
  static FaultHook hook;
  return hook;
}

int FaultAt(FileStep const& step) { return Hook() ? Hook()(step) : 0; }

std::uint64_t RoundUp(std::uint64_t value, std::uint64_t unit) { return (value + unit - 1) / unit * unit; }

/// A write beyond the file-size limit would end the process; ignored, it is an error like any other. This
/// concerns the whole process, so a handler of the host stays.
void IgnoreSizeLimitSignal() {
  struct sigaction action {};
  if (sigaction(SIGXFSZ, nullptr, &action) == 0 && action.sa_handler == SIG_DFL) signal(SIGXFSZ, SIG_IGN);
}

unsigned long FileSystemOf(int descriptor) {
  struct statfs facts {};
  return fstatfs(descriptor, &facts) == 0 ? static_cast<unsigned long>(facts.f_type) : 0;
}

bool KeepsReservations(unsigned long fileSystem) {
  constexpr unsigned long xfs = 0x58465342;
  // ext2 and ext3 have the number of ext4.
  return fileSystem == EXT4_SUPER_MAGIC || fileSystem == TMPFS_MAGIC || fileSystem == xfs ||
         fileSystem == OVERLAYFS_SUPER_MAGIC;
}

/// Bytes of the file that have no space. Exact on tmpfs; elsewhere at least so many.
std::uint64_t MissingSpace(int descriptor, std::uint64_t size) {
  struct stat facts {};
  if (fstat(descriptor, &facts) != 0) return size;
  std::uint64_t const present = static_cast<std::uint64_t>(facts.st_blocks) * 512;
  return present < size ? size - present : 0;
}

std::uint64_t FreeSpace(int descriptor) {
  struct statfs facts {};
  return fstatfs(descriptor, &facts) == 0 ? facts.f_bavail * static_cast<std::uint64_t>(facts.f_bsize) : 0;
}

int Allocate(int descriptor, int flags, std::uint64_t from, std::uint64_t to) {
  int const result = fallocate(descriptor, flags, static_cast<off_t>(from), static_cast<off_t>(to - from));
  return result == 0 ? 0 : errno;
}

std::string Sentence(char const* operation, std::string const& path, std::string const& reason) {
  std::string text = std::string(operation) + " " + path + " failed: " + reason + ".";
  text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
  return text;
}

std::string Reason(int error, FileRange range, std::optional<std::uint64_t> freeBytes) {
  std::string text = std::strerror(error);
  if (range.bytes > 0)
    text += ", " + std::to_string(range.bytes) + " bytes at offset " + std::to_string(range.offset);
  if (freeBytes) text += ", " + std::to_string(*freeBytes) + " bytes are free";
  return text;
}

int OpenFlags(PositionedFile::Mode mode) {
  switch (mode) {
  case PositionedFile::Mode::Read:
    return O_RDONLY;
  case PositionedFile::Mode::Write:
    return O_RDWR;
  case PositionedFile::Mode::Create:
    return O_RDWR | O_CREAT | O_EXCL;
  // Not O_TRUNC: the file may be another process's, which only the lock tells.
  case PositionedFile::Mode::Replace:
    return O_RDWR | O_CREAT;
  }
  return O_RDONLY;
}

} // namespace

void SetFaultHook(FaultHook hook) { Hook() = std::move(hook); }

FileError::FileError(Access access, char const* operation, std::string const& path, int error,
                     FileRange range, std::optional<std::uint64_t> freeBytes)
    : m_text(Sentence(operation, path, Reason(error, range, freeBytes))), m_error(error), m_access(access) {}

FileError::FileError(Access access, char const* operation, std::string const& path, int error,
                     std::string const& reason)
    : m_text(Sentence(operation, path, reason)), m_error(error), m_access(access) {}

// Opening

PositionedFile::PositionedFile(std::string path, Mode mode) : m_path(std::move(path)), m_mode(mode) {
  IgnoreSizeLimitSignal();
  Open();
  try {
    Lock();
    CheckIdentity();
    if (mode == Mode::Replace) Resize(0);
    m_mapsSafely = CanMapSafely();
  } catch (...) {
    close(m_descriptor);
    throw;
  }
}

PositionedFile::~PositionedFile() {
  if (m_mapping != nullptr) munmap(m_mapping, m_mapped);
  close(m_descriptor);
}

void PositionedFile::Raise(Access access, char const* operation, int error, FileRange range) const {
  std::optional<std::uint64_t> freeBytes;
  if (error == ENOSPC || error == EDQUOT) freeBytes = FreeSpace(m_descriptor);
  throw FileError(access, operation, m_path, error, range, freeBytes);
}

void PositionedFile::RaiseOutside(char const* operation, FileRange range) const {
  throw FileError(Access::Read, operation, m_path, EFAULT,
                  std::to_string(range.bytes) + " bytes at offset " + std::to_string(range.offset) +
                      " are wanted, the file has " + std::to_string(m_size));
}

void PositionedFile::Open() {
  bool const isNew = m_mode == Mode::Create || m_mode == Mode::Replace;
  // Without blocking: opening a pipe would wait for its other end.
  m_descriptor = open(m_path.c_str(), OpenFlags(m_mode) | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0666);
  if (m_descriptor < 0)
    throw FileError(isNew ? Access::Write : Access::Read, isNew ? "creating" : "opening", m_path, errno);
}

void PositionedFile::Lock() const {
  if (flock(m_descriptor, (IsReadOnly() ? LOCK_SH : LOCK_EX) | LOCK_NB) == 0) return;
  if (errno != EWOULDBLOCK) Raise(Access::Read, "locking", errno, {});
  throw FileError(Access::Read, "opening", m_path, EWOULDBLOCK,
                  IsReadOnly() ? "another process, or this one, has it open for writing"
                               : "another process, or this one, has it open for reading or writing");
}

/// The name must still be that of the file that was locked: it may have been deleted or renamed in between.
void PositionedFile::CheckIdentity() {
  struct stat mine {};
  struct stat named {};
  if (fstat(m_descriptor, &mine) != 0) Raise(Access::Read, "opening", errno, {});
  if (!S_ISREG(mine.st_mode))
    throw FileError(Access::Read, "opening", m_path, ENODEV, "it is not a regular file");
  if (stat(m_path.c_str(), &named) != 0 || named.st_ino != mine.st_ino || named.st_dev != mine.st_dev)
    throw FileError(Access::Read, "opening", m_path, ENOENT, "it was deleted or replaced meanwhile");
  m_size = static_cast<std::uint64_t>(mine.st_size);
}

/// A copied file may have holes where the original was reserved only, or share its blocks with the original.
/// Touching them through a mapping needs space, and a full disk would then be a signal: so the space is
/// reserved now.
bool PositionedFile::CanMapSafely() {
  unsigned long const fileSystem = FileSystemOf(m_descriptor);
  if (!KeepsReservations(fileSystem)) return false;
  if (m_size == 0) return true;
  bool const isDisk = fileSystem != TMPFS_MAGIC && fileSystem != OVERLAYFS_SUPER_MAGIC;
  // tmpfs fills holes even when they are read.
  std::uint64_t const missing = MissingSpace(m_descriptor, m_size);
  if (IsReadOnly()) return isDisk || missing == 0;
  // tmpfs looks at each page, which takes long for large files.
  if (fileSystem == TMPFS_MAGIC && missing == 0) return true;
  // A damaged file may say that it is larger than the disk.
  if (missing > FreeSpace(m_descriptor)) return false;
  constexpr int unshare = FALLOC_FL_UNSHARE_RANGE | FALLOC_FL_KEEP_SIZE;
  return Allocate(m_descriptor, unshare, 0, m_size) == 0 || TryReserve(0, m_size) == 0;
}

// Reading and writing

void PositionedFile::ReadZeroFilled(std::uint64_t offset, void* to, std::size_t bytes) const {
  auto* at = static_cast<char*>(to);
  while (bytes > 0) {
    ssize_t const done = pread(m_descriptor, at, std::min(bytes, mostAtOnce), static_cast<off_t>(offset));
    if (done < 0 && errno == EINTR) continue;
    if (done < 0) Raise(Access::Read, "reading", errno, {offset, bytes});
    if (done == 0) break;
    at += done;
    offset += static_cast<std::uint64_t>(done);
    bytes -= static_cast<std::size_t>(done);
  }
  std::memset(at, 0, bytes);
}

void PositionedFile::ReadAt(std::uint64_t offset, void* to, std::size_t bytes) const {
  if (offset > m_size || bytes > m_size - offset) RaiseOutside("reading", {offset, bytes});
  ReadZeroFilled(offset, to, bytes);
}

void PositionedFile::WriteAt(std::uint64_t offset, void const* from, std::size_t bytes) {
  if (int const error = FaultAt({FileStep::Kind::Write, m_descriptor, offset, from, bytes}))
    Raise(Access::Write, "writing", error, {offset, bytes});
  auto const* at = static_cast<char const*>(from);
  while (bytes > 0) {
    ssize_t const done = pwrite(m_descriptor, at, std::min(bytes, mostAtOnce), static_cast<off_t>(offset));
    if (done < 0 && errno == EINTR) continue;
    if (done <= 0) Raise(Access::Write, "writing", done < 0 ? errno : EIO, {offset, bytes});
    at += done;
    offset += static_cast<std::uint64_t>(done);
    bytes -= static_cast<std::size_t>(done);
    m_size = std::max(m_size, offset);
  }
}

void PositionedFile::Zero(std::uint64_t offset, std::uint64_t bytes) {
  std::uint64_t const end = offset + bytes;
  std::uint64_t const firstPage = std::min(RoundUp(offset, pageBytes), end);
  std::uint64_t const lastPage = std::max(end / pageBytes * pageBytes, firstPage);
  WriteZeros(offset, firstPage);
  if (lastPage > firstPage) ZeroPages(firstPage, lastPage);
  WriteZeros(lastPage, end);
}

void PositionedFile::ZeroPages(std::uint64_t from, std::uint64_t to) {
  if (Allocate(m_descriptor, FALLOC_FL_ZERO_RANGE, from, to) == 0) {
    m_size = std::max(m_size, to);
    return;
  }
  // tmpfs has no zero ranges. Between the two steps another process may take the space of the hole.
  if (FileSystemOf(m_descriptor) == TMPFS_MAGIC &&
      Allocate(m_descriptor, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, from, to) == 0) {
    bool const wasSafe = std::exchange(m_mapsSafely, false);
    Reserve(from, to);
    m_mapsSafely = wasSafe;
    return;
  }
  WriteZeros(from, to);
}

void PositionedFile::WriteZeros(std::uint64_t from, std::uint64_t to) {
  if (from == to) return;
  std::vector<char> const zeros(std::min(zerosAtOnce, to - from));
  for (std::uint64_t at = from; at < to; at += zeros.size())
    WriteAt(at, zeros.data(), std::min<std::uint64_t>(zeros.size(), to - at));
}

// Size and durability

void PositionedFile::Resize(std::uint64_t size) {
  int error = FaultAt({FileStep::Kind::Resize, m_descriptor, size, nullptr, 0});
  if (error == 0 && ftruncate(m_descriptor, static_cast<off_t>(size)) != 0) error = errno;
  if (error != 0) Raise(Access::Write, "resizing", error, {size, 0});
  m_size = size;
}

/// Returns 0 or an errno.
int PositionedFile::TryReserve(std::uint64_t from, std::uint64_t to) const {
  if (int const error = FaultAt({FileStep::Kind::Reserve, m_descriptor, from, nullptr, to - from}))
    return error;
  // tmpfs starts anew after a signal, so a host with a fast timer would never see a large range done.
  constexpr std::uint64_t smallestStep = 256 * pageBytes;
  std::uint64_t step = to - from;
  while (from < to) {
    std::uint64_t const stepEnd = from + std::min(step, to - from);
    int const error = Allocate(m_descriptor, 0, from, stepEnd);
    if (error != 0 && error != EINTR) return error;
    if (error == 0) from = stepEnd;
    if (error == EINTR) step = std::max(step / 2, smallestStep);
  }
  return 0;
}

bool PositionedFile::Reserve(std::uint64_t from, std::uint64_t to) {
  if (to <= from) return true;
  int const error = TryReserve(from, to);
  if (error == EOPNOTSUPP || error == ENOSYS) {
    m_mapsSafely = false;
    if (to > m_size) Resize(to);
    return false;
  }
  if (error != 0) {
    // Some file systems leave what they could get. Should cutting it off fail too, it is only wasted.
    [[maybe_unused]] int const ignored = ftruncate(m_descriptor, static_cast<off_t>(m_size));
    Raise(Access::Write, "reserving space in", error, {from, to - from});
  }
  m_size = std::max(m_size, to);
  return true;
}

void PositionedFile::Sync() {
  int error = FaultAt({FileStep::Kind::Sync, m_descriptor, 0, nullptr, 0});
  if (error == 0 && fsync(m_descriptor) != 0) error = errno;
  if (error != 0) Raise(Access::Write, "flushing", error, {});
}

void PositionedFile::SyncFolder() const {
  std::size_t const slash = m_path.rfind('/');
  std::string const folder = slash == std::string::npos ? "." : m_path.substr(0, slash + 1);
  int const descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) return; // a folder that may be entered but not read
  int error = FaultAt({FileStep::Kind::Sync, descriptor, 0, nullptr, 0});
  if (error == 0 && fsync(descriptor) != 0) error = errno;
  close(descriptor);
  if (error != 0 && error != EINVAL) Raise(Access::Write, "flushing the folder of", error, {});
}

// Mapping

std::byte* PositionedFile::MapFurther(std::uint64_t offset, std::uint64_t bytes) {
  if (offset > m_size || bytes > m_size - offset) RaiseOutside("mapping", {offset, bytes});
  // Twice what is there, so that a growing file is not mapped anew each time. Addresses behind the end of the
  // file are not touched before the file has them.
  std::uint64_t const needed = RoundUp(std::max<std::uint64_t>(m_size, 1), mappingUnit);
  std::uint64_t const wanted = IsReadOnly() ? needed : std::max(2 * needed, smallestMapping);
  if (!TryToMap(wanted) && !TryToMap(needed)) Raise(Access::Read, "mapping", errno, {0, needed});
  return m_mapping + offset;
}

bool PositionedFile::TryToMap(std::uint64_t bytes) {
  int const protection = IsReadOnly() ? PROT_READ : PROT_READ | PROT_WRITE;
  // A mapping that is moved keeps its page tables; a new one would fault for each page again.
  void* const place = m_mapping != nullptr ? mremap(m_mapping, m_mapped, bytes, MREMAP_MAYMOVE)
                                           : mmap(nullptr, bytes, protection, MAP_SHARED, m_descriptor, 0);
  if (place == MAP_FAILED) return false;
  m_mapping = static_cast<std::byte*>(place);
  m_mapped = bytes;
  return true;
}

} // namespace orx::store
