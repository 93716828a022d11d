#include "mtx/impl/exchange/FileOutput.h"

#include "mtx/impl/matrix/ORXSrvMtxErrors.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace orx {

namespace {

constexpr auto& sourceFile = orx::exchangeSource;

constexpr auto keepOwner = static_cast<uid_t>(-1);
constexpr auto keepGroup = static_cast<gid_t>(-1);

/// True when a new file can replace the file: it is regular and writable, and has the name `target`. A path
/// of a descriptor may lead to a file that has no name any more.
bool IsReplaceable(std::string const& target, struct stat const& facts) {
  struct stat named {};
  return S_ISREG(facts.st_mode) && stat(target.c_str(), &named) == 0 && named.st_ino == facts.st_ino &&
         named.st_dev == facts.st_dev && faccessat(AT_FDCWD, target.c_str(), W_OK, AT_EACCESS) == 0;
}

/// Follows symbolic links, also those whose target does not exist.
std::string BehindLinks(char const* path) {
  constexpr int mostLinks = 40; // the limit of the system
  std::error_code none;
  std::filesystem::path target = path;
  for (int k = 0; k < mostLinks && std::filesystem::is_symlink(target, none); ++k)
    target = target.parent_path() / std::filesystem::read_symlink(target, none);
  return target.string();
}

/// Creates a file beside the target under a free name, which `name` receives. Returns its descriptor, on
/// failure a negative number with the reason in errno.
int CreateBeside(std::string const& target, mode_t mode, std::string& name) {
  constexpr int mostNames = 100; // a killed process may have left files with our names
  std::string const stem = target + ".new" + std::to_string(getpid());
  int file = -1;
  for (int k = 0; k < mostNames && file < 0 && (k == 0 || errno == EEXIST); ++k) {
    name = k == 0 ? stem : stem + "-" + std::to_string(k);
    file = open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
  }
  return file;
}

/// True when the error says that the folder takes no new file. An existing file may still be writable.
bool IsRefusalOfFolder(int error) {
  return error == EACCES || error == EPERM || error == EROFS || error == ENAMETOOLONG;
}

} // namespace

FileOutput::FileOutput(char const* path, Existing existing)
    : m_path(path), m_existing(existing), m_target(BehindLinks(path)), m_file(-1),
      m_buffer(mem_MakeArray<char>(bufferSize)), m_next(m_buffer.get()) {
  struct stat older {};
  bool const exists = stat(path, &older) == 0;
  bool const isReplaced = exists ? IsReplaceable(m_target, older) : errno == ENOENT;
  if (isReplaced) OpenBeside(exists ? &older : nullptr);
  if (m_file < 0 && (!isReplaced || IsRefusalOfFolder(errno))) OpenInPlace();
  if (m_file < 0) FailWithError(__LINE__);
}

FileOutput::~FileOutput() {
  if (m_file >= 0) close(m_file);
  if (!m_newName.empty()) unlink(m_newName.c_str());
}

mode_t FileOutput::ModeOfNewFile() const noexcept { return m_existing == Existing::Truncate ? 0666 : 0644; }

void FileOutput::OpenBeside(struct stat const* older) {
  std::string name;
  // At no moment may the new file be readable for anybody who cannot read the older one.
  m_file = CreateBeside(m_target, older != nullptr ? S_IRUSR | S_IWUSR : ModeOfNewFile(), name);
  if (m_file < 0) return;
  m_newName = name;
  if (older == nullptr) return;
  bool const hasGroup = fchown(m_file, keepOwner, older->st_gid) == 0;
  static_cast<void>(fchown(m_file, older->st_uid, keepGroup) == 0); // only root can
  static_cast<void>(fchmod(m_file, older->st_mode & (hasGroup ? 0777 : 0707)));
}

void FileOutput::OpenInPlace() {
  int const truncate = m_existing == Existing::Truncate ? O_TRUNC : 0;
  m_file = open(m_path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | truncate, ModeOfNewFile());
}

void FileOutput::RequireSpace(std::uint64_t bytes) const {
  struct stat facts {};
  struct statvfs space {};
  if (fstat(m_file, &facts) != 0 || !S_ISREG(facts.st_mode) || fstatvfs(m_file, &space) != 0) return;
  std::uint64_t const available =
      std::uint64_t{space.f_bavail} * space.f_frsize + static_cast<std::uint64_t>(facts.st_blocks) * 512;
  if (bytes > available)
    Fail(__LINE__, std::string(std::strerror(ENOSPC)) + ", " + std::to_string(bytes) + " bytes wanted, " +
                       std::to_string(available) + " available");
}

void FileOutput::WriteBytes(void const* bytes, std::size_t count) {
  if (count == 0) return;
  if (count > bufferSize) {
    Flush();
    WriteThrough(static_cast<char const*>(bytes), count);
  } else {
    std::memcpy(ReserveBuffer(count), bytes, count);
    m_next += count;
  }
}

void FileOutput::WriteZeros(std::int64_t bytes) {
  while (bytes > 0) {
    auto const run = static_cast<std::size_t>(std::min<std::int64_t>(bytes, bufferSize));
    std::memset(ReserveBuffer(run), 0, run);
    m_next += run;
    bytes -= static_cast<std::int64_t>(run);
  }
}

void FileOutput::WriteThrough(char const* bytes, std::size_t count) {
  constexpr std::size_t longest = std::size_t{1} << 30; // the system writes at most 2 GiB at once
  while (count > 0) {
    ssize_t const written = write(m_file, bytes, std::min(count, longest));
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) FailWithError(__LINE__);
    bytes += written;
    count -= static_cast<std::size_t>(written);
  }
}

void FileOutput::Flush() {
  char* const end = std::exchange(m_next, m_buffer.get());
  WriteThrough(m_buffer.get(), static_cast<std::size_t>(end - m_buffer.get()));
}

void FileOutput::Close() {
  Flush();
  if (m_existing == Existing::KeepTail && !m_newName.empty()) CopyTail();
  if (close(std::exchange(m_file, -1)) != 0) FailWithError(__LINE__);
  if (m_newName.empty()) return;
  if (std::rename(m_newName.c_str(), m_target.c_str()) != 0) FailWithError(__LINE__);
  m_newName.clear();
}

/// Appends the bytes of the older file, if there is one, beyond the bytes written.
void FileOutput::CopyTail() {
  struct Older {
    int file;
    ~Older() { close(file); }
  } const older{open(m_target.c_str(), O_RDONLY | O_CLOEXEC)};
  if (older.file < 0 && errno == ENOENT) return;
  if (older.file < 0) FailWithError(__LINE__);
  off_t offset = lseek(m_file, 0, SEEK_CUR);
  while (true) {
    ssize_t const read = pread(older.file, m_buffer.get(), bufferSize, offset);
    if (read < 0 && errno == EINTR) continue;
    if (read < 0) FailWithError(__LINE__);
    if (read == 0) return;
    WriteThrough(m_buffer.get(), static_cast<std::size_t>(read));
    offset += read;
  }
}

void FileOutput::FailWithError(int line) const { Fail(line, std::strerror(errno)); }

void FileOutput::Fail(int line, std::string const& reason) const {
  ORXSrvMtxFileWriteFailure((m_path + ": " + reason).c_str()).Throw(sourceFile, line);
}

} // namespace orx
