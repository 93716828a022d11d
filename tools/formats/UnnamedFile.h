#pragma once

#include <string>

namespace orx::tool {

/// A temporary file without a name, in $TMPDIR or /tmp: it is gone with the object, however the program ends.
class UnnamedFile {
public:
  /// A file that cannot be made is a ToolError.
  UnnamedFile();
  UnnamedFile(UnnamedFile const&) = delete;
  UnnamedFile& operator=(UnnamedFile const&) = delete;
  ~UnnamedFile();

  /// A path that this process alone can open the file by, as often as it likes.
  std::string Path() const;
  /// Appends all that comes from a file descriptor until its end; false, with errno, when reading fails.
  bool FillFrom(int source) const;
  /// Writes the whole content to a file descriptor; false, with errno, when that fails.
  bool CopyTo(int target) const;

private:
  int m_file;
};

/// A descriptor that is closed with its scope, without a change of errno.
class Descriptor {
public:
  /// Of a path, or of the standard stream that `access`, O_RDONLY or O_WRONLY, means by "-".
  Descriptor(std::string const& path, int access);
  Descriptor(Descriptor const&) = delete;
  Descriptor& operator=(Descriptor const&) = delete;
  ~Descriptor();

  bool IsOpen() const noexcept { return m_number >= 0; } ///< errno says why not
  int Number() const noexcept { return m_number; }

private:
  int m_number;
};

} // namespace orx::tool
