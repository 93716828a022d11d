#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace orx::tool {

/// A text file line by line, each cut into fields. What does not fit is a ToolError with path and line.
///
///     TextLines lines(path);
///     while (lines.Next(',')) ... lines.Index(0, "a row", 0, 99) ... lines.Value(2)
class TextLines {
public:
  /// Reads the whole file.
  explicit TextLines(std::string const& path);

  /// Goes to the next line that is not blank and cuts it at `separator`; blanks around fields do not count.
  /// A separator of ' ' stands for any run of blanks. False at the end of the file, which is then the place
  /// that messages name.
  bool Next(char separator);
  /// The same without cutting, for lines that are looked at as a whole; the field count is then 0.
  bool NextLine();

  std::string_view Line() const noexcept { return m_line; }
  int FieldCount() const noexcept { return m_fieldCount; }
  /// REQUIRES position < FieldCount() and below the limit of fields that are kept.
  std::string_view Field(int position) const noexcept { return m_fields[position]; }
  void RequireFields(int count, char const* names) const;

  /// The field as an integer within the limits; `name` is what a message calls it.
  std::int64_t Integer(int position, char const* name, std::int64_t least, std::int64_t largest) const {
    return IntegerOf(m_fields[position], name, least, largest);
  }
  /// The field as the double nearest to it: decimal, exponent after e, E, d or D, or inf or nan.
  double Value(int position) const { return ValueOf(m_fields[position]); }
  /// The same of a part of the line.
  std::int64_t IntegerOf(std::string_view field, char const* name, std::int64_t least,
                         std::int64_t largest) const;
  double ValueOf(std::string_view whole) const;

  /// "<path>, line <n>: <expected> expected, found <found>".
  [[noreturn]] void Fail(std::string const& expected, std::string const& found) const;
  /// The same with what stands in the line, or the end of the file.
  [[noreturn]] void FailHere(std::string const& expected) const;

private:
  static constexpr int maxFields = 8;

  void Cut(char separator);
  void Keep(std::string_view field);

  std::string m_path;
  std::string m_text;
  std::size_t m_next = 0; ///< first character behind the line
  std::int64_t m_number = 0;
  bool m_isAtEnd = false;
  std::string_view m_line;
  std::array<std::string_view, maxFields> m_fields;
  int m_fieldCount = 0; ///< also counts those beyond maxFields
};

} // namespace orx::tool
