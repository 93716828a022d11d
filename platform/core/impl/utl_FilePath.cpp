#include "core/utl_FilePath.h"

#include <string>
#include <sys/stat.h>

namespace {
atr_String JoinPaths(atr_String const& first, atr_String const& second) {
  if (*second.AsText() == '\0') return first;
  std::string path = first.AsText();
  if (!path.empty() && path.back() != '/') path += '/';
  return atr_String((path + second.AsText()).c_str());
}
} // namespace

utl_FilePath::utl_FilePath(atr_String const& first, atr_String const& second)
    : m_path(JoinPaths(first, second)) {}

bool utl_FilePath::Exists() const noexcept {
  struct stat info {};
  return stat(m_path.AsText(), &info) == 0;
}
