#include "tools/OutputFile.h"

#include "tools/ToolError.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace orx::tool {

OutputFile::OutputFile(std::string const& path) : m_path(path), m_file(std::fopen(path.c_str(), "w")) {
  if (m_file == nullptr) Fail();
}

void OutputFile::WriteBytes(void const* bytes, std::size_t count) {
  if (count == 0) return; // an empty array may be null, which fwrite does not take
  if (std::fwrite(bytes, 1, count, m_file.get()) != count) Fail();
}

void OutputFile::WriteZeros(std::int64_t bytes) {
  constexpr std::array<char, 4096> zeros{};
  for (; bytes > 0; bytes -= zeros.size())
    WriteBytes(zeros.data(), std::min(zeros.size(), static_cast<std::size_t>(bytes)));
}

void OutputFile::Close() {
  if (std::fclose(m_file.release()) != 0) Fail();
}

void OutputFile::Fail() const {
  throw ToolError(ExitCode::Failure, "cannot write '" + m_path + "': " + std::strerror(errno));
}

ReplacedFile::ReplacedFile(std::string const& target) : m_target(target) {
  std::error_code ignored;
  auto const real = std::filesystem::weakly_canonical(target, ignored);
  if (!ignored && !real.empty()) m_target = real.string();
  if (std::filesystem::exists(m_target, ignored) && !std::filesystem::is_regular_file(m_target, ignored))
    throw ToolError(ExitCode::Failure,
                    "cannot write '" + target + "': expected a file, found a folder or device");
  std::string const path = m_target + ".new" + std::to_string(getpid());
  int const file = open(path.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0666);
  if (file < 0) Fail("cannot write");
  close(file);
  m_path = path;
}

ReplacedFile::~ReplacedFile() {
  if (!m_path.empty()) unlink(m_path.c_str());
}

void ReplacedFile::TakePlace() {
  int const file = open(m_path.c_str(), O_WRONLY | O_CLOEXEC);
  bool const isOnDisk = file >= 0 && fsync(file) == 0;
  if (file >= 0) close(file);
  if (!isOnDisk) Fail("cannot bring to the disk");
  struct stat older {};
  if (stat(m_target.c_str(), &older) == 0 && chmod(m_path.c_str(), older.st_mode & 07777) != 0)
    Fail("cannot set the permissions of");
  if (std::rename(m_path.c_str(), m_target.c_str()) != 0) Fail("cannot replace");
  m_path.clear();
}

void ReplacedFile::Fail(char const* what) const {
  throw ToolError(ExitCode::Failure, std::string(what) + " '" + m_target + "': " + std::strerror(errno));
}

} // namespace orx::tool
