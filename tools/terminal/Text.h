#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace orx::tool {

/// printf into a string.
[[gnu::format(printf, 1, 2)]] std::string Format(char const* format, ...);

/// "1 entry", "2 entries".
std::string Counted(std::int64_t count, char const* one, char const* many);

/// Zero-based positions as a one-based list that stays short: "3, 7, 8, ...".
std::string ShortList(std::vector<int> const& positions);

/// "label:   text", the texts of several lines below one another.
std::string Line(char const* label, std::string const& text);

/// "# text", a line that scripts skip among the lines of figures.
std::string Note(std::string const& text);

/// The text with every `part` in it replaced.
std::string Replaced(std::string text, std::string const& part, std::string const& by);

/// "3.2 GB".
std::string Gigabytes(double bytes);

/// A value so that it reads back as the same number, in as few digits as that takes.
std::string Number(double value);

} // namespace orx::tool
