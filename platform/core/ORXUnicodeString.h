#pragma once

#include "core/atr_String.h"
#include "core/orx_export.h"

/// The platform's Unicode string: an immutable text in UTF-8, the encoding of file names on this platform.
class ORX_EXPORT ORXUnicodeString {
public:
  /// The empty text.
  ORXUnicodeString() noexcept = default;
  /// Copies a zero-terminated text; null gives the empty text. Bytes that are not UTF-8 are kept, because a
  /// file name may hold any byte; IsValid is false then.
  explicit ORXUnicodeString(char const* utf8) : m_utf8(utf8) {}
  explicit ORXUnicodeString(atr_String const& utf8) noexcept : m_utf8(utf8) {}

  /// The text, zero-terminated; valid as long as a copy of this string exists; never null.
  char const* AsUtf8() const noexcept { return m_utf8.AsText(); }
  bool IsEmpty() const noexcept { return *AsUtf8() == '\0'; }
  /// True when every byte is part of a well-formed sequence (shortest form, no surrogates, up to U+10FFFF).
  bool IsValid() const noexcept { return CountCodePoints() >= 0; }
  /// Number of code points; -1 when the text is not valid.
  int CountCodePoints() const noexcept;

  friend bool operator==(ORXUnicodeString const& a, ORXUnicodeString const& b) noexcept {
    return a.m_utf8 == b.m_utf8;
  }

private:
  atr_String m_utf8;
};
