#include "tools/formats/TextLines.h"

#include "tools/formats/FileKind.h"
#include "tools/terminal/ToolError.h"

#include "mtx/layouts/TextFields.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace orx::tool {
namespace {

std::string_view Trimmed(std::string_view text) {
  auto const first = std::ranges::find_if_not(text, IsBlank);
  auto const end = std::find_if_not(text.rbegin(), std::make_reverse_iterator(first), IsBlank).base();
  return {first, end};
}

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

std::string ReadWhole(std::string const& path) {
  RequireReadable(path);
  std::unique_ptr<std::FILE, CloseFile> const file(std::fopen(path.c_str(), "r"));
  std::string text;
  std::size_t constexpr step = std::size_t{1} << 16;
  errno = 0;
  while (file != nullptr) {
    std::size_t const before = text.size();
    text.resize(std::max(before + step, 2 * before));
    std::size_t const read = std::fread(text.data() + before, 1, text.size() - before, file.get());
    text.resize(before + read);
    if (read == 0) break;
  }
  if (file == nullptr || std::ferror(file.get()) != 0)
    throw ToolError(ExitCode::UnusableInput, "cannot read '" + path + "': " + std::strerror(errno));
  return text;
}

/// A leading plus is no part of a number to std::from_chars; a sign behind it is none either.
std::string_view WithoutPlus(std::string_view field) {
  bool const hasPlus = field.size() > 1 && field[0] == '+' && field[1] != '-';
  return hasPlus ? field.substr(1) : field;
}

bool IsDecimal(std::string_view field) {
  return field.find_first_not_of("0123456789+-.eE") == std::string_view::npos;
}

} // namespace

TextLines::TextLines(std::string const& path) : m_path(path), m_text(ReadWhole(path)) {
  if (m_text.starts_with(byteOrderMark)) m_next = byteOrderMark.size();
}

bool TextLines::NextLine() {
  m_fieldCount = 0;
  while (m_next < m_text.size()) {
    std::size_t const end = std::min(m_text.find('\n', m_next), m_text.size());
    m_line = Trimmed(std::string_view(m_text).substr(m_next, end - m_next));
    m_next = end + 1;
    ++m_number;
    if (!m_line.empty()) return true;
  }
  m_line = {};
  m_isAtEnd = true;
  return false;
}

bool TextLines::Next(char separator) {
  if (!NextLine()) return false;
  Cut(separator);
  return true;
}

void TextLines::Keep(std::string_view field) {
  if (m_fieldCount < maxFields) m_fields[m_fieldCount] = field;
  ++m_fieldCount;
}

void TextLines::Cut(char separator) {
  char const* at = m_line.data();
  char const* const end = at + m_line.size();
  while (true) {
    char const* const fieldEnd =
        separator == ' ' ? std::find_if(at, end, IsBlank) : std::find(at, end, separator);
    Keep(Trimmed({at, fieldEnd}));
    if (fieldEnd == end) return;
    at = separator == ' ' ? std::find_if_not(fieldEnd, end, IsBlank) : fieldEnd + 1;
  }
}

void TextLines::RequireFields(int count, char const* names) const {
  if (m_fieldCount != count) FailHere(names);
}

std::int64_t TextLines::IntegerOf(std::string_view field, char const* name, std::int64_t least,
                                  std::int64_t largest) const {
  std::string_view const digits = WithoutPlus(field);
  std::int64_t value = 0;
  auto const [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  if (error != std::errc() || end != digits.data() + digits.size() || value < least || value > largest)
    Fail(std::string(name) + " of " + std::to_string(least) + " to " + std::to_string(largest),
         Quoted(field));
  return value;
}

double TextLines::ValueOf(std::string_view whole) const {
  std::string_view field = WithoutPlus(whole);
  std::string withE; // outlives the field that it may replace
  if (std::size_t const d = field.find_first_of("dD"); d != std::string_view::npos) {
    withE = field;
    withE[d] = 'e';
    if (IsDecimal(withE)) field = withE;
  }
  double value = 0.0;
  auto const [end, error] = std::from_chars(field.data(), field.data() + field.size(), value);
  // from_chars would take what stands in brackets behind nan.
  bool const isWhole = end == field.data() + field.size() && !field.ends_with(')');
  if (isWhole && error == std::errc()) return value;
  if (isWhole && error == std::errc::result_out_of_range) {
    // from_chars does not say on which side; a value that is too small is a zero or denormal.
    double const limit = std::strtod(std::string(field).c_str(), nullptr);
    if (std::isfinite(limit)) return limit;
    Fail("a value that fits a double", Quoted(whole));
  }
  Fail("a value", Quoted(whole));
}

void TextLines::Fail(std::string const& expected, std::string const& found) const {
  throw ToolError(ExitCode::UnusableInput, m_path + ", line " + std::to_string(m_number) + ": " + expected +
                                               " expected, found " + found);
}

void TextLines::FailHere(std::string const& expected) const {
  Fail(expected, m_isAtEnd ? "the end of the file" : Quoted(m_line));
}

} // namespace orx::tool
