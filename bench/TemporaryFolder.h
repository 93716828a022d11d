#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace bench {

/// A new folder that is removed with all it holds.
class TemporaryFolder {
public:
  TemporaryFolder() : m_path((std::filesystem::temp_directory_path() / "orx-bench-XXXXXX").string()) {
    if (mkdtemp(m_path.data()) == nullptr) throw std::runtime_error("no temporary folder " + m_path);
  }
  TemporaryFolder(TemporaryFolder const&) = delete;
  TemporaryFolder& operator=(TemporaryFolder const&) = delete;
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }
  std::string const& Path() const { return m_path; }
  std::string File(char const* name) const { return m_path + "/" + name; }

private:
  std::string m_path;
};

} // namespace bench
