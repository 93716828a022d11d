#pragma once

#include "tools/formats/UnnamedFile.h"

#include <initializer_list>
#include <optional>
#include <string>

namespace orx::tool {

/// A file that the user names, "-" for standard input. What can be read but once, standard input, a pipe or a
/// device, is copied into a temporary file, which all readers then get, so that its type can be told and its
/// size be known.
class InputFile {
public:
  /// A file that cannot be read is a ToolError with the system's reason.
  explicit InputFile(std::string const& name);

  /// What messages call it: the name, or "standard input".
  std::string const& Name() const noexcept { return m_name; }
  std::string const& Path() const noexcept { return m_path; }
  /// Calls read(Path()). Errors become a ToolError in which the file has its name; those of the library's
  /// readers lose the name of a class and begin with the place.
  template<class Read>
  auto ReadWith(Read const& read) const {
    try {
      return read(m_path);
    } catch (...) {
      Rethrow();
    }
  }

private:
  [[noreturn]] void Rethrow() const;

  std::string m_name;
  std::string m_path;
  std::optional<UnnamedFile> m_copy;
};

/// Refuses files of which two are standard input, which can be read but once.
void RefuseTwoStandardInputs(std::initializer_list<std::string> names);

} // namespace orx::tool
