#pragma once

#include <string>
#include <string_view>

// What text files of matrices have in common, for their readers in the library and in the command-line
// program.

namespace orx {

/// True for the characters that separate fields: blanks and the ends of lines.
constexpr bool IsBlank(char c) noexcept { return c == ' ' || (c >= '\t' && c <= '\r'); }

/// Returns a field in quotes for a message, cut after 40 characters, with '?' for characters that are not
/// printable.
inline std::string Quoted(std::string_view field) {
  constexpr std::size_t longest = 40;
  std::string text(field.substr(0, longest));
  for (char& c : text)
    if (c < ' ' || c > '~') c = '?';
  return '"' + text + (field.size() > longest ? "...\"" : "\"");
}

} // namespace orx
