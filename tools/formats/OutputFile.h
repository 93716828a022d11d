#pragma once

#include "tools/formats/UnnamedFile.h"
#include "tools/terminal/Interruption.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace orx::tool {

/// A file that is written from its start. Failures are a ToolError with path and the system's reason.
class OutputFile {
public:
  explicit OutputFile(std::string const& path);

  void Write(std::string_view text) { WriteBytes(text.data(), text.size()); }
  template<class T>
  void WriteValues(T const* values, std::int64_t count) {
    WriteBytes(values, static_cast<std::size_t>(count) * sizeof(T));
  }
  void WriteInt(std::int32_t value) { WriteBytes(&value, sizeof value); }
  void WriteZeros(std::int64_t bytes);
  /// Without it the file may be incomplete.
  void Close();

private:
  struct CloseFile {
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
  };

  void WriteBytes(void const* bytes, std::size_t count);
  [[noreturn]] void Fail() const;

  std::string m_path;
  std::unique_ptr<std::FILE, CloseFile> m_file;
};

/// Prints on standard output. A failure is a ToolError, but for a reader that has gone, such as head: the
/// work goes on, and EndIfReaderIsGone ends the program as other programs end then, by SIGPIPE. REQUIRES that
/// SIGPIPE is ignored.
void PrintOut(std::string const& text);
void EndIfReaderIsGone();

/// A new content for a path. It is written to a file beside the target, which takes the target's place as a
/// whole, or is removed again, also when SIGINT, SIGTERM or SIGHUP end the program: what the target
/// held stays until then. For "-", which is standard output, and for a pipe or device it is written to a
/// temporary file and copied when it is complete.
class ReplacedFile {
public:
  /// Creates the empty file beside, so that a folder that cannot be written to shows before the work. A
  /// target that is a folder is a ToolError.
  explicit ReplacedFile(std::string const& target);
  ReplacedFile(ReplacedFile const&) = delete;
  ReplacedFile& operator=(ReplacedFile const&) = delete;
  ~ReplacedFile();

  std::string const& Path() const noexcept { return m_path; }
  /// Calls write(Path()). Errors become a ToolError in which the file has the name of the target.
  template<class Write>
  void WriteWith(Write const& write) const {
    try {
      write(m_path);
    } catch (...) {
      Rethrow();
    }
  }
  /// Brings the content to the disk and gives it the target's name, and the permissions of an older file.
  void ReplaceTarget();

private:
  void CreateBeside();
  void CopyToTarget() const;
  [[noreturn]] void Rethrow() const;
  [[noreturn]] void Fail(char const* what) const;

  std::string m_name;                  ///< as the user gave it
  std::string m_target;                ///< behind symbolic links
  std::string m_path;                  ///< empty once it has been renamed
  std::optional<UnnamedFile> m_stream; ///< for a target that cannot be replaced
  RemovedWhenInterrupted m_removal;    ///< of m_path
};

} // namespace orx::tool
