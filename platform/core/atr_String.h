#pragma once

#include "core/orx_export.h"

#include <cstdint>

/// Storage of a reference-counted text: a character pointer and a shared use count, both null together.
class ORX_EXPORT atr_StringBase {
protected:
  atr_StringBase() noexcept = default;
  explicit atr_StringBase(char const* text);
  atr_StringBase(atr_StringBase const& other) noexcept;
  ~atr_StringBase();

  /// Frees text and use count of a representation that no string uses any more.
  static void Delete(char* text, std::int32_t* useCount) noexcept;

  char* m_text = nullptr;             ///< zero-terminated; shared by m_useCount strings
  std::int32_t* m_useCount = nullptr; ///< null: no representation
};

/// The suite's string: an immutable text whose copies share one representation.
/// A string without representation (default-constructed or made from null) reads as the empty text.
/// The use count is plain: a text and its copies belong to one thread.
class ORX_EXPORT atr_String : private atr_StringBase {
public:
  atr_String() noexcept = default;
  /// Copies a zero-terminated text; null gives a string without representation.
  explicit atr_String(char const* text) : atr_StringBase(text) {}
  atr_String(atr_String const&) noexcept = default;
  atr_String& operator=(atr_String const& other) noexcept;
  ~atr_String() = default;

  bool IsNull() const noexcept { return m_useCount == nullptr; }
  /// The zero-terminated text; valid as long as a string shares it; never null.
  char const* AsText() const noexcept { return m_text != nullptr ? m_text : ""; }
  /// Number of strings that share the representation; 0 without one.
  int UseCount() const noexcept { return m_useCount != nullptr ? *m_useCount : 0; }

  /// Compares the texts: a string without representation equals the empty text.
  friend ORX_EXPORT bool operator==(atr_String const& a, atr_String const& b) noexcept;
};
