#include "file/PositionedFile.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <linux/falloc.h>
#include <linux/magic.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace orx::file {

namespace {

using Access = FileError::Access;

constexpr std::uint64_t pageBytes = 4096;
constexpr std::uint64_t mappingUnit = std::uint64_t{2} << 20;
constexpr std::uint64_t smallestMapping = std::uint64_t{64} << 20;
constexpr std::size_t mostAtOnce = std::size_t{1} << 30; // bytes; a system call moves less than 2 GiB
constexpr std::uint64_t zerosAtOnce = std::uint64_t{1} << 20;

FaultHook& InstalledHook() {
  static FaultHook hook;
  return hook;
}

int AskForFault(FileStep const& step) { return InstalledHook() ? InstalledHook()(step) : 0; }

std::uint64_t RoundUp(std::uint64_t value, std::uint64_t unit) { return (value + unit - 1) / unit * unit; }

/// Ignores the signal of a write beyond the file-size limit, which would end the process, so that the write
/// fails with an error instead. The signal belongs to the whole process: a handler of the host is left alone,
/// and otherwise the default handler returns with the end of the last writer.
class SizeLimitSignal {
public:
  static void IgnoreSignal() {
    struct sigaction action {};
    if (s_writers++ > 0 || sigaction(SIGXFSZ, nullptr, &action) != 0 || action.sa_handler != SIG_DFL) return;
    s_isIgnored = signal(SIGXFSZ, SIG_IGN) != SIG_ERR;
  }
  static void RestoreSignal() {
    struct sigaction action {};
    if (--s_writers > 0 || !std::exchange(s_isIgnored, false)) return;
    bool const isOurs = sigaction(SIGXFSZ, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
    if (isOurs) signal(SIGXFSZ, SIG_DFL);
  }

private:
  static int s_writers;
  static bool s_isIgnored;
};
int SizeLimitSignal::s_writers = 0;
bool SizeLimitSignal::s_isIgnored = false;

unsigned long FileSystemOf(int descriptor) {
  struct statfs facts {};
  return fstatfs(descriptor, &facts) == 0 ? static_cast<unsigned long>(facts.f_type) : 0;
}

bool IsDisk(unsigned long fileSystem) {
  constexpr unsigned long xfs = 0x58465342;
  // ext2 and ext3 have the number of ext4.
  return fileSystem == EXT4_SUPER_MAGIC || fileSystem == xfs;
}

/// True when the file system keeps reserved space for the file. An overlay file system keeps what the one
/// under it keeps, and its number does not name that one. File systems that write in place can also remove a
/// range from a file: they answer an impossible range with EINVAL, the others do not know the operation.
bool KeepsReservations(int descriptor, unsigned long fileSystem) {
  if (fileSystem == TMPFS_MAGIC) return true;
  if (!IsDisk(fileSystem) && fileSystem != OVERLAYFS_SUPER_MAGIC) return false;
  return fallocate(descriptor, FALLOC_FL_COLLAPSE_RANGE, 1, 1) != 0 && errno == EINVAL;
}

/// Number of bytes of the file that have no space. Exact on tmpfs, elsewhere a lower bound.
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

std::string ComposeMessage(char const* operation, std::string const& path, std::string const& reason) {
  std::string text = std::string(operation) + " " + path + " failed: " + reason + ".";
  text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
  return text;
}

std::string DescribeReason(int error, FileRange range, std::optional<std::uint64_t> freeBytes) {
  std::string text = std::strerror(error);
  if (range.bytes > 0)
    text += ", " + std::to_string(range.bytes) + " bytes at offset " + std::to_string(range.offset);
  if (freeBytes) text += ", " + std::to_string(*freeBytes) + " bytes are free";
  return text;
}

/// Opens a path without blocking: the opening of a pipe would wait for its other end.
int OpenWithoutBlocking(std::string const& path, int flags) {
  return open(path.c_str(), flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0666);
}

/// Calls a function that returns 0, or -1 with errno set, and repeats the call while signals interrupt it.
/// Returns 0 or an errno.
template<class Call>
int CallUninterrupted(Call call) {
  for (;;) {
    if (call() == 0) return 0;
    if (errno != EINTR) return errno;
  }
}

std::string FolderOf(std::string const& path) {
  std::size_t const slash = path.rfind('/');
  return slash == std::string::npos ? "" : path.substr(0, slash + 1);
}

/// The path with symbolic links followed; the same path when the file does not exist.
std::string FollowLinks(std::string const& path) {
  char* const real = realpath(path.c_str(), nullptr);
  std::string resolved = real != nullptr ? real : path;
  free(real); // NOLINT(cppcoreguidelines-no-malloc): realpath's
  return resolved;
}

/// The path of a new file until it is published at `target`. It is the same each time, so that the next
/// creation uses the file that a killed process has left.
std::string StagedName(std::string const& target) {
  constexpr char suffix[] = ".orx-new";
  constexpr std::size_t longestName = 255;
  std::string const folder = FolderOf(target);
  return folder + target.substr(folder.size()).substr(0, longestName + 1 - sizeof suffix) + suffix;
}

/// The absolute path; the same path when the current directory is unknown.
std::string MakeAbsolute(std::string const& path) {
  std::error_code failure;
  std::filesystem::path const absolute = std::filesystem::absolute(path, failure);
  return failure ? path : absolute.string();
}

} // namespace

std::uint64_t PositionedFile::s_forks = 0;

void SetFaultHook(FaultHook hook) { InstalledHook() = std::move(hook); }

FileError::FileError(Access access, char const* operation, std::string const& path, int error,
                     FileRange range, std::optional<std::uint64_t> freeBytes)
    : m_text(ComposeMessage(operation, path, DescribeReason(error, range, freeBytes))), m_error(error),
      m_access(access) {}

FileError::FileError(Access access, char const* operation, std::string const& path, int error,
                     std::string const& reason)
    : m_text(ComposeMessage(operation, path, reason)), m_error(error), m_access(access) {}

// Opening

PositionedFile::PositionedFile(std::string path, Mode mode)
    : m_path(std::move(path)), m_absolutePath(MakeAbsolute(m_path)), m_mode(mode) {
  [[maybe_unused]] static int const isCounting = pthread_atfork(nullptr, nullptr, [] { ++s_forks; });
  m_forks = s_forks;
  SizeLimitSignal::IgnoreSignal();
  try {
    Open();
  } catch (...) {
    CloseAll();
    throw;
  }
}

PositionedFile::~PositionedFile() {
  if (m_mapping != nullptr) munmap(m_mapping, m_mapped);
  CloseAll();
}

void PositionedFile::CloseAll() noexcept {
  if (m_descriptor >= 0 && IsOwner()) {
    if (!IsPublished() && !m_isExchanged) unlink(m_stagedPath.c_str());
    // A forked child that still runs shares the lock, which closing would not end.
    flock(m_descriptor, LOCK_UN);
  }
  for (int const descriptor : {m_descriptor, m_predecessor})
    if (descriptor >= 0) close(descriptor);
  SizeLimitSignal::RestoreSignal();
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
  if (IsCreating()) {
    OpenStaged();
  } else {
    int const creation = m_mode == Mode::Scratch ? O_CREAT | O_EXCL : 0;
    int const flags = creation | (IsReadOnly() ? O_RDONLY : O_RDWR);
    m_descriptor = OpenWithoutBlocking(m_path, flags);
    if (m_descriptor < 0)
      throw FileError(Access::Open, m_mode == Mode::Scratch ? "creating" : "opening", m_path, errno);
    LockFile(m_descriptor);
    CheckIdentity();
  }
  if (m_mode != Mode::Scratch && !IsCreating()) return;
  if (m_size > 0) Resize(0);
  PrepareMapping();
}

/// Opens a new file at its staged path, and locks the file that Publish will replace.
void PositionedFile::OpenStaged() {
  struct stat named {};
  bool const isThere = lstat(m_path.c_str(), &named) == 0;
  if (isThere && m_mode == Mode::Create) throw FileError(Access::Open, "creating", m_path, EEXIST);
  m_target = FollowLinks(m_path);
  if (isThere) LockPredecessor();
  m_stagedPath = StagedName(m_target);
  m_descriptor = OpenWithoutBlocking(m_stagedPath, O_RDWR | O_CREAT | O_NOFOLLOW);
  if (m_descriptor < 0) {
    int const error = errno;
    m_stagedPath.clear();
    throw FileError(Access::Open, "creating", m_path, error);
  }
  try {
    LockFile(m_descriptor);
    CheckIdentity();
  } catch (FileError const&) {
    m_stagedPath.clear(); // the staged file belongs to another process
    throw;
  }
  if (m_predecessor >= 0 && fstat(m_predecessor, &named) == 0) {
    // The new file gets the permissions and, where allowed, the owner of the one that it replaces.
    [[maybe_unused]] int ignored = fchmod(m_descriptor, named.st_mode & 07777U);
    ignored = fchown(m_descriptor, named.st_uid, named.st_gid);
  }
}

void PositionedFile::LockPredecessor() {
  m_predecessor = OpenWithoutBlocking(m_target, O_RDWR);
  if (m_predecessor < 0 && errno == ENOENT) return; // a link to nowhere
  if (m_predecessor < 0) throw FileError(Access::Open, "creating", m_path, errno);
  struct stat facts {};
  if (fstat(m_predecessor, &facts) == 0 && !S_ISREG(facts.st_mode))
    throw FileError(Access::Open, "opening", m_path, ENODEV, "it is not a regular file");
  LockFile(m_predecessor);
}

void PositionedFile::LockFile(int descriptor) const {
  int const kind = IsReadOnly() ? LOCK_SH : LOCK_EX;
  int const error = CallUninterrupted([&] { return flock(descriptor, kind | LOCK_NB); });
  if (error == 0) return;
  if (error != EWOULDBLOCK) throw FileError(Access::Open, "locking", m_path, error);
  throw FileError(Access::Open, "opening", m_path, EWOULDBLOCK,
                  IsReadOnly() ? "another process, or this one, has it open for writing"
                               : "another process, or this one, has it open for reading or writing");
}

/// Raises FileError when the path no longer names the file that was locked: another process may have deleted
/// or renamed the file after it was opened here.
void PositionedFile::CheckIdentity() {
  struct stat mine {};
  struct stat named {};
  if (fstat(m_descriptor, &mine) != 0) throw FileError(Access::Open, "opening", m_path, errno);
  if (!S_ISREG(mine.st_mode))
    throw FileError(Access::Open, "opening", m_path, ENODEV, "it is not a regular file");
  std::string const& name = IsPublished() ? m_path : m_stagedPath;
  if (stat(name.c_str(), &named) != 0 || named.st_ino != mine.st_ino || named.st_dev != mine.st_dev)
    throw FileError(Access::Open, "opening", m_path, ENOENT, "it was deleted or replaced meanwhile");
  m_size = static_cast<std::uint64_t>(mine.st_size);
}

void PositionedFile::RequireOwner(char const* operation) const {
  if (IsOwner()) return;
  throw FileError(Access::Write, operation, m_path, EPERM,
                  "this process was forked from the one that has it open");
}

void PositionedFile::RequireIntact(char const* operation) const {
  struct stat facts {};
  if (fstat(m_descriptor, &facts) != 0) Raise(Access::Write, operation, errno, {});
  if (facts.st_nlink == 0 && IsPublished())
    throw FileError(Access::Write, operation, m_path, ENOENT, "another program has deleted or replaced it");
  auto const size = static_cast<std::uint64_t>(facts.st_size);
  if (size < m_size)
    throw FileError(Access::Write, operation, m_path, ENODATA,
                    "another program has cut it to " + std::to_string(size) + " bytes, expected " +
                        std::to_string(m_size));
}

// Publishing

void PositionedFile::Publish() {
  if (IsPublished()) return;
  RequireOwner("creating");
  int error = AskForFault({FileStep::Kind::Rename, m_descriptor, 0, nullptr, 0});
  if (error == 0) error = MoveToTarget();
  if (error != 0) throw FileError(error == EEXIST ? Access::Open : Access::Write, "creating", m_path, error);
  try {
    SyncFolder();
  } catch (...) {
    MoveBackToStaged();
    throw;
  }
  // After an exchange the former file has the staged path.
  unlink(m_stagedPath.c_str());
  m_stagedPath.clear();
  if (m_predecessor >= 0) close(std::exchange(m_predecessor, -1));
}

/// Gives the staged file its name. Returns 0 or an errno.
int PositionedFile::MoveToTarget() {
  char const* const staged = m_stagedPath.c_str();
  char const* const target = m_target.c_str();
  if (m_predecessor >= 0) {
    m_isExchanged = renameat2(AT_FDCWD, staged, AT_FDCWD, target, RENAME_EXCHANGE) == 0;
    if (m_isExchanged) return 0;
  } else if (m_mode == Mode::Create) {
    // A link never replaces a file that another process has created meanwhile.
    if (link(staged, target) == 0) return 0;
    if (errno != EPERM && errno != EOPNOTSUPP && errno != ENOSYS) return errno;
  }
  // The file system can neither exchange nor link: a file that was created meanwhile, or the former one, is
  // lost.
  return rename(staged, target) == 0 ? 0 : errno;
}

/// Undoes MoveToTarget.
void PositionedFile::MoveBackToStaged() noexcept {
  char const* const staged = m_stagedPath.c_str();
  char const* const target = m_target.c_str();
  if (m_isExchanged) {
    m_isExchanged = renameat2(AT_FDCWD, staged, AT_FDCWD, target, RENAME_EXCHANGE) != 0;
  } else if (m_predecessor < 0) {
    rename(target, staged); // does nothing when both names are links to the file
    unlink(target);
  }
}

void PositionedFile::SyncFolder() const {
  std::string const folder = FolderOf(m_target);
  int const descriptor = open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) return; // the folder may be entered but not read
  int error = AskForFault({FileStep::Kind::Sync, descriptor, 0, nullptr, 0});
  if (error == 0) error = CallUninterrupted([&] { return fsync(descriptor); });
  close(descriptor);
  if (error != 0 && error != EINVAL) Raise(Access::Write, "flushing the folder of", error, {});
}

// Space for mappings

/// True when no access through a mapping can meet a full disk, which would be a signal. A copied file may
/// have holes, or share blocks with the original, and writing to either through a mapping needs space;
/// this function reserves that space.
bool PositionedFile::CanMapSafely() {
  unsigned long const fileSystem = FileSystemOf(m_descriptor);
  // Reading a hole on tmpfs needs space, too.
  std::uint64_t const missing = MissingSpace(m_descriptor, m_size);
  if (IsReadOnly()) {
    bool const isKnown = fileSystem == TMPFS_MAGIC || fileSystem == OVERLAYFS_SUPER_MAGIC;
    return IsDisk(fileSystem) || (isKnown && missing == 0);
  }
  if (!KeepsReservations(m_descriptor, fileSystem)) return false;
  if (m_size == 0) return true;
  // Reserving visits each page on tmpfs, which takes long for large files.
  if (fileSystem == TMPFS_MAGIC && missing == 0) return true;
  // The size of a damaged file may exceed the disk.
  if (missing > FreeSpace(m_descriptor)) return false;
  constexpr int unshare = FALLOC_FL_UNSHARE_RANGE | FALLOC_FL_KEEP_SIZE;
  return Allocate(m_descriptor, unshare, 0, m_size) == 0 || TryReserve(0, m_size) == 0;
}

void PositionedFile::PrepareMapping() { m_mapsSafely = CanMapSafely(); }

// Reading and writing

void PositionedFile::ReadZeroFilled(std::uint64_t offset, void* to, std::size_t bytes) const {
  if (int const error = AskForFault({FileStep::Kind::Read, m_descriptor, offset, nullptr, bytes}))
    Raise(Access::Read, "reading", error, {offset, bytes});
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
  RequireOwner("writing to");
  if (int const error = AskForFault({FileStep::Kind::Write, m_descriptor, offset, from, bytes}))
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

void PositionedFile::ZeroRange(std::uint64_t offset, std::uint64_t bytes) {
  RequireOwner("writing to");
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
  // tmpfs cannot zero a range, but can cut a hole and reserve it again. In between, another process may take
  // the space.
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
  RequireOwner("resizing");
  int error = AskForFault({FileStep::Kind::Resize, m_descriptor, size, nullptr, 0});
  if (error == 0)
    error = CallUninterrupted([&] { return ftruncate(m_descriptor, static_cast<off_t>(size)); });
  if (error != 0) Raise(Access::Write, "resizing", error, {size, 0});
  m_size = size;
}

/// Returns 0 or an errno.
int PositionedFile::TryReserve(std::uint64_t from, std::uint64_t to) const {
  if (int const error = AskForFault({FileStep::Kind::Reserve, m_descriptor, from, nullptr, to - from}))
    return error;
  // tmpfs begins again after a signal. In a host with a fast timer a large range would never be finished, so
  // the steps become smaller.
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
  RequireOwner("reserving space in");
  RequireIntact("reserving space in"); // a range that another program has cut off would become zeros
  int const error = TryReserve(from, to);
  if (error == EOPNOTSUPP || error == ENOSYS) {
    m_mapsSafely = false;
    if (to > m_size) Resize(to);
    return false;
  }
  if (error != 0) {
    // Some file systems keep the space that they could get. It is wasted if this fails, too.
    [[maybe_unused]] int const ignored = ftruncate(m_descriptor, static_cast<off_t>(m_size));
    Raise(Access::Write, "reserving space in", error, {from, to - from});
  }
  m_size = std::max(m_size, to);
  return true;
}

void PositionedFile::Sync() {
  RequireOwner("flushing");
  int error = AskForFault({FileStep::Kind::Sync, m_descriptor, 0, nullptr, 0});
  // fdatasync makes the size and the block addresses durable, but not the time of the change.
  if (error == 0) error = CallUninterrupted([&] { return fdatasync(m_descriptor); });
  if (error != 0) Raise(Access::Write, "flushing", error, {});
}

void PositionedFile::Unlink() const noexcept {
  struct stat mine {};
  struct stat named {};
  bool const isMine = fstat(m_descriptor, &mine) == 0 && lstat(m_absolutePath.c_str(), &named) == 0 &&
                      mine.st_ino == named.st_ino && mine.st_dev == named.st_dev;
  if (isMine && IsOwner()) unlink(m_absolutePath.c_str());
}

// Mapping

std::byte* PositionedFile::MapMore(std::uint64_t offset, std::uint64_t bytes) {
  if (!TryToMapMore(offset, bytes)) Raise(Access::Read, "mapping", errno, {0, m_size});
  return m_mapping + offset;
}

bool PositionedFile::TryToMapMore(std::uint64_t offset, std::uint64_t bytes) {
  if (offset > m_size || bytes > m_size - offset) RaiseOutside("mapping", {offset, bytes});
  // The mapping is twice as long as the file, so that a growing file is not mapped again each time. Nobody
  // touches addresses behind the end of the file.
  std::uint64_t const needed = RoundUp(std::max<std::uint64_t>(m_size, 1), mappingUnit);
  std::uint64_t const wanted = IsReadOnly() ? needed : std::max(2 * needed, smallestMapping);
  if (TryToMap(wanted) || TryToMap(needed)) return true;
  m_mapsSafely = false;
  return false;
}

bool PositionedFile::TryToMap(std::uint64_t bytes) {
  errno = AskForFault({FileStep::Kind::Map, m_descriptor, 0, nullptr, bytes});
  if (errno != 0) return false;
  int const protection = IsReadOnly() ? PROT_READ : PROT_READ | PROT_WRITE;
  // A mapping that is moved keeps its page tables; a new mapping would fault for each page again.
  void* const address = m_mapping != nullptr ? mremap(m_mapping, m_mapped, bytes, MREMAP_MAYMOVE)
                                             : mmap(nullptr, bytes, protection, MAP_SHARED, m_descriptor, 0);
  if (address == MAP_FAILED) return false;
  m_mapping = static_cast<std::byte*>(address);
  m_mapped = bytes;
  return true;
}

} // namespace orx::file
