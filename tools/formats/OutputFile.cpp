#include "tools/formats/OutputFile.h"

#include "tools/terminal/Text.h"
#include "tools/terminal/ToolError.h"

#include "core/ORXBasException.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace orx::tool {
namespace {

bool isReaderGone = false;

} // namespace

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

void PrintOut(std::string const& text) {
  bool const isWritten = std::fputs(text.c_str(), stdout) >= 0 && std::fflush(stdout) == 0;
  if (isWritten || isReaderGone) return;
  if (errno != EPIPE)
    throw ToolError(ExitCode::Failure, std::string("standard output: ") + std::strerror(errno));
  isReaderGone = true;
}

void EndIfReaderIsGone() {
  if (!isReaderGone) return;
  std::signal(SIGPIPE, SIG_DFL);
  std::raise(SIGPIPE);
}

ReplacedFile::ReplacedFile(std::string const& target) : m_name(target), m_target(target) {
  std::error_code ignored;
  if (std::filesystem::is_directory(target, ignored))
    throw ToolError(ExitCode::Failure, "cannot write '" + target + "': expected a file, found a folder");
  bool const isNew = !std::filesystem::exists(target, ignored);
  auto const real = std::filesystem::weakly_canonical(target, ignored);
  // A file that has no name any more is still written to by the name of a descriptor.
  bool const isReplaceable = isNew || (std::filesystem::is_regular_file(target, ignored) &&
                                       std::filesystem::equivalent(real, target, ignored));
  if (target != "-" && isReplaceable) {
    if (!real.empty()) m_target = real.string();
    CreateBeside();
  } else {
    // By a name, because writers may replace the file that they are given.
    m_stream.emplace();
    m_path = (std::filesystem::temp_directory_path() / "orxmtx-XXXXXX").string();
    int const file = mkostemp(m_path.data(), O_CLOEXEC);
    if (file < 0) Fail("cannot make a temporary file for");
    close(file);
    m_removal.Remember(m_path);
  }
}

void ReplacedFile::CreateBeside() {
  std::string const path = m_target + ".new" + std::to_string(getpid());
  int const file = open(path.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0666);
  if (file < 0) Fail("cannot write");
  close(file);
  m_path = path;
  m_removal.Remember(path);
}

ReplacedFile::~ReplacedFile() {
  if (!m_path.empty()) unlink(m_path.c_str());
}

void ReplacedFile::Rethrow() const {
  try {
    throw;
  } catch (ToolError const& e) {
    throw ToolError(e.Code(), Replaced(e.what(), m_path, m_name));
  } catch (ORXBasException const& e) {
    throw ToolError(ExitCode::Failure, Replaced(e.AsString().AsText(), m_path, m_name));
  }
}

void ReplacedFile::CopyToTarget() const {
  Descriptor const target(m_name, O_WRONLY);
  Descriptor const source(m_path, O_RDONLY);
  if (target.IsOpen() && source.IsOpen() && m_stream->FillFrom(source.Number()) &&
      m_stream->CopyTo(target.Number()))
    return;
  if (errno != EPIPE) Fail("cannot write");
  isReaderGone = true;
}

void ReplacedFile::ReplaceTarget() {
  if (m_stream) return CopyToTarget();
  {
    Descriptor const file(m_path, O_WRONLY);
    if (!file.IsOpen() || fsync(file.Number()) != 0) Fail("cannot bring to the disk");
  }
  struct stat older {};
  if (stat(m_target.c_str(), &older) == 0 && chmod(m_path.c_str(), older.st_mode & 07777) != 0)
    Fail("cannot set the permissions of");
  if (std::rename(m_path.c_str(), m_target.c_str()) != 0) Fail("cannot replace");
  m_path.clear();
}

void ReplacedFile::Fail(char const* what) const {
  throw ToolError(ExitCode::Failure, std::string(what) + " '" + m_name + "': " + std::strerror(errno));
}

} // namespace orx::tool
