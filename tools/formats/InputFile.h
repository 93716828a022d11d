#pragma once

#include "tools/formats/UnnamedFile.h"

#include <initializer_list>
#include <optional>
#include <string>

namespace orx::tool {

/// A file that the user names, "-" for standard input, "model.sim:K" for a matrix of a database. What can be
/// read but once, standard input, a pipe or a device, is copied into a temporary file, which all readers then
/// get, so that its type can be told and its size be known.
class InputFile {
public:
  /// A file that cannot be read is a ToolError with the system's reason.
  explicit InputFile(std::string const& name);

  /// What messages call it: the name, or "standard input".
  std::string const& Name() const noexcept { return m_name; }
  /// What follows the colon behind a database; empty without one.
  std::string const& MatrixName() const noexcept { return m_matrixName; }
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
  /// The message with the name in place of the path of a copy.
  std::string WithName(std::string const& message) const;

  std::string m_name;
  std::string m_path;
  std::string m_matrixName;
  std::optional<UnnamedFile> m_copy;
};

/// The path of the file that a name means: of "model.sim:K" that of the database, unless a file has the whole
/// name. Any other name is a path.
std::string PathOf(std::string const& name);

/// Refuses files of which two are standard input, which can be read but once.
void RefuseTwoStandardInputs(std::initializer_list<std::string> names);

} // namespace orx::tool
