#include "mtx/impl/FileOutput.h"

#include "mtx/impl/ORXSrvMtxErrors.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <utility>

namespace orx {

namespace {

constexpr char sourceFile[] = "mtx/impl/FileOutput.cpp";

int OpenForWriting(char const* path, FileOutput::Existing existing) {
  if (existing == FileOutput::Existing::Truncate)
    return open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  return open(path, O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
}

} // namespace

FileOutput::FileOutput(char const* path, Existing existing)
    : m_path(path), m_file(-1), m_buffer(mem_MakeArray<char>(bufferSize)), m_next(m_buffer.get()) {
  m_file = OpenForWriting(path, existing);
  if (m_file < 0) FailWithError(__LINE__);
}

FileOutput::~FileOutput() {
  if (m_file >= 0) close(m_file);
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
    std::memcpy(Room(count), bytes, count);
    m_next += count;
  }
}

void FileOutput::WriteZeros(std::int64_t bytes) {
  while (bytes > 0) {
    auto const run = static_cast<std::size_t>(std::min<std::int64_t>(bytes, bufferSize));
    std::memset(Room(run), 0, run);
    m_next += run;
    bytes -= static_cast<std::int64_t>(run);
  }
}

void FileOutput::WriteThrough(char const* bytes, std::size_t count) {
  constexpr std::size_t longest = std::size_t{1} << 30; // the system writes up to 2 GiB at once
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
  if (close(std::exchange(m_file, -1)) != 0) FailWithError(__LINE__);
}

void FileOutput::FailWithError(int line) const { Fail(line, std::strerror(errno)); }

void FileOutput::Fail(int line, std::string const& reason) const {
  ORXSrvMtxFileWriteFailure((m_path + ": " + reason).c_str()).Throw(sourceFile, line);
}

} // namespace orx
