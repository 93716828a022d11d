#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <initializer_list>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

/// A file in the test's temporary folder that goes with the object.
class File {
public:
  explicit File(std::string const& content) : File() { std::ofstream(m_path, std::ios::binary) << content; }
  File()
      : m_path(testing::TempDir() + "orx_" + std::to_string(getpid()) + "_" + std::to_string(++count) +
               ".file") {}
  File(File const&) = delete;
  File& operator=(File const&) = delete;
  ~File() { std::remove(m_path.c_str()); }
  char const* Path() const { return m_path.c_str(); }
  std::string Content() const {
    std::ostringstream text;
    text << std::ifstream(m_path, std::ios::binary).rdbuf();
    return text.str();
  }

private:
  static inline int count = 0;
  std::string m_path;
};

/// Bytes written in hexadecimal, with blanks between groups.
inline std::string Hex(char const* text) {
  auto const digit = [](char c) { return c <= '9' ? c - '0' : c - 'a' + 10; };
  std::string bytes;
  for (; *text != '\0'; ++text)
    if (*text != ' ') {
      bytes += static_cast<char>(digit(text[0]) * 16 + digit(text[1]));
      ++text;
    }
  return bytes;
}

/// Values as they stand in memory.
template<class T>
std::string Raw(std::initializer_list<T> values) {
  return {reinterpret_cast<char const*>(values.begin()), values.size() * sizeof(T)};
}
template<class T>
std::string Raw(std::vector<T> const& values) {
  return {reinterpret_cast<char const*>(values.data()), values.size() * sizeof(T)};
}
