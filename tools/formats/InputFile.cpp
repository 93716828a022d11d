#include "tools/formats/InputFile.h"

#include "tools/formats/FileKind.h"
#include "tools/terminal/Text.h"
#include "tools/terminal/ToolError.h"

#include "mtx/ORXSrvMtxOpenFileException.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace orx::tool {
namespace {

bool IsRegular(std::string const& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

/// "K.txt, line 7: a value expected, found ..." out of the library's sentence about it.
std::string PlaceAndFault(std::string_view text) {
  constexpr std::string_view opening = "Failed to open file ";
  std::size_t const at = text.find(opening);
  if (at == std::string_view::npos || text.find(" expected", at) == std::string_view::npos)
    return std::string(text);
  text.remove_prefix(at + opening.size());
  if (text.ends_with('.')) text.remove_suffix(1);
  return std::string(text);
}

} // namespace

InputFile::InputFile(std::string const& name) : m_name(name), m_path(PathOf(name)) {
  if (name == "-")
    m_name = "standard input";
  else
    RequireReadable(m_path);
  if (m_path != name) m_matrixName = name.substr(m_path.size() + 1);
  if (name != "-" && IsRegular(m_path)) return;
  m_copy.emplace();
  m_path = m_copy->Path();
  Descriptor const source(name, O_RDONLY);
  if (!source.IsOpen() || !m_copy->FillFrom(source.Number()))
    throw ToolError(ExitCode::UnusableInput, "cannot read '" + m_name + "': " + std::strerror(errno));
}

void InputFile::Rethrow() const {
  try {
    throw;
  } catch (ToolError const& e) {
    throw ToolError(e.Code(), WithName(e.what()));
  } catch (ORXSrvMtxOpenFileException const& e) {
    throw ToolError(ExitCode::UnusableInput, WithName(PlaceAndFault(e.AsString().AsText())));
  }
}

std::string InputFile::WithName(std::string const& message) const {
  return m_copy ? Replaced(message, m_path, m_name) : message;
}

std::string PathOf(std::string const& name) {
  struct stat status {};
  if (stat(name.c_str(), &status) == 0) return name;
  for (std::size_t colon = name.find(':'); colon != std::string::npos; colon = name.find(':', colon + 1))
    if (HoldsDatabase(name.substr(0, colon))) return name.substr(0, colon);
  return name;
}

void RefuseTwoStandardInputs(std::initializer_list<std::string> names) {
  if (std::ranges::count(names, "-") > 1)
    throw ToolError(ExitCode::WrongUsage,
                    "both files are standard input, which holds one; expected a file name");
}

} // namespace orx::tool
