#include "tools/terminal/Text.h"

#include <array>
#include <charconv>
#include <cstdarg>
#include <cstdio>

namespace orx::tool {

std::string Format(char const* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  std::va_list again;
  va_copy(again, arguments);
  int const length = std::vsnprintf(nullptr, 0, format, arguments);
  va_end(arguments);
  std::string text(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
  std::vsnprintf(text.data(), text.size() + 1, format, again);
  va_end(again);
  return text;
}

std::string Counted(std::int64_t count, char const* one, char const* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

std::string ShortList(std::vector<int> const& positions) {
  constexpr std::size_t shown = 8;
  std::string text;
  for (std::size_t i = 0; i < positions.size() && i < shown; ++i)
    text += (i == 0 ? "" : ", ") + std::to_string(positions[i] + 1);
  return positions.size() > shown ? text + ", ..." : text;
}

std::string Line(char const* label, std::string const& text) {
  return Format("%-20s %s\n", (std::string(label) + ":").c_str(), text.c_str());
}

std::string Note(std::string const& text) { return "# " + text + "\n"; }

std::string Replaced(std::string text, std::string const& part, std::string const& by) {
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + by.size()))
    text.replace(at, part.size(), by);
  return text;
}

std::string Gigabytes(double bytes) { return Format("%.1f GB", bytes / 1e9); }

std::string Number(double value) {
  std::array<char, 32> text{};
  char* const end = std::to_chars(text.data(), text.data() + text.size(), value).ptr;
  return {text.data(), end};
}

} // namespace orx::tool
