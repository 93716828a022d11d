#pragma once

// The one temporary folder of all test programs, and a single file in one.

#include "tests/support/Uncopied.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>

/// A folder that goes away with its files.
class TemporaryFolder : Uncopied {
public:
  explicit TemporaryFolder(std::filesystem::path const& parent = std::filesystem::temp_directory_path()) {
    std::string name = (parent / "orx-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr)
      throw std::runtime_error("no folder can be made in " + parent.string());
    m_path = name;
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }

  std::string Path(std::string const& name) const { return (m_path / name).string(); }
  std::string Write(std::string const& name, std::string const& content) const {
    std::ofstream(Path(name), std::ios::binary) << content;
    return Path(name);
  }
  std::string Read(std::string const& name) const {
    std::ostringstream content;
    content << std::ifstream(Path(name), std::ios::binary).rdbuf();
    return content.str();
  }
  std::set<std::string> Files() const {
    std::set<std::string> names;
    for (auto const& file : std::filesystem::directory_iterator(m_path))
      names.insert(file.path().filename().string());
    return names;
  }

private:
  std::filesystem::path m_path;
};

/// A temporary folder that is the current directory as long as it lives.
class WorkingFolder : public TemporaryFolder {
public:
  WorkingFolder() { std::filesystem::current_path(Path("")); }
  ~WorkingFolder() {
    std::error_code ignored;
    std::filesystem::current_path(m_before, ignored);
  }

private:
  std::filesystem::path m_before = std::filesystem::current_path();
};

/// A file in a folder of its own.
class File {
public:
  File() = default;
  explicit File(std::string const& content) { m_folder.Write("file", content); }
  char const* Path() const { return m_path.c_str(); }
  std::string Content() const { return m_folder.Read("file"); }

private:
  TemporaryFolder m_folder;
  std::string m_path = m_folder.Path("file");
};
