#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace orx::tool {

/// A file that is written from its start. Failures are a ToolError with path and the system's reason.
class OutputFile {
public:
  explicit OutputFile(std::string const& path);

  void Write(std::string_view text) { WriteBytes(text.data(), text.size()); }
  template<class T>
  void WriteValues(std::span<T const> values) {
    WriteBytes(values.data(), values.size_bytes());
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

/// A new content for a path. It is written to a file beside the target, which takes the target's place as a
/// whole, or is removed again: what the target held stays until then.
class ReplacedFile {
public:
  /// Creates the empty file beside. A target that is a folder or a device is a ToolError.
  explicit ReplacedFile(std::string const& target);
  ReplacedFile(ReplacedFile const&) = delete;
  ReplacedFile& operator=(ReplacedFile const&) = delete;
  ~ReplacedFile();

  std::string const& Path() const noexcept { return m_path; }
  /// Brings the content to the disk and gives it the target's name, and the permissions of an older file.
  void TakePlace();

private:
  [[noreturn]] void Fail(char const* what) const;

  std::string m_target; ///< behind symbolic links
  std::string m_path;   ///< empty once it has been renamed
};

} // namespace orx::tool
