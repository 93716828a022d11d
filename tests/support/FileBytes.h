#pragma once

// The bytes of binary files, put together field by field.

#include <initializer_list>
#include <string>
#include <vector>

/// Bytes written in hexadecimal, with blanks between groups.
inline std::string Hex(std::string const& text) {
  std::string digits;
  for (char const c : text)
    if (c != ' ') digits += c;
  std::string bytes;
  for (std::size_t k = 0; k < digits.size(); k += 2)
    bytes += static_cast<char>(std::stoi(digits.substr(k, 2), nullptr, 16));
  return bytes;
}

/// Values as they stand in memory.
template<class T>
std::string Raw(std::vector<T> const& values) {
  return {reinterpret_cast<char const*>(values.data()), values.size() * sizeof(T)};
}
template<class T>
std::string Raw(std::initializer_list<T> values) {
  return Raw(std::vector<T>(values));
}
inline std::string Zeros(std::size_t count) { return std::string(count, '\0'); }
