#pragma once

#include "core/atr_String.h"
#include "core/orx_export.h"

/// An argument of a message: the number of a placeholder, and the value for it.
class ORX_EXPORT atr_SubstituteFormat {
public:
  /// Fills a "%s". The text is not copied and must live until Result was called; null is the empty text.
  atr_SubstituteFormat(int number, char const* text) noexcept : m_number(number), m_text(text ? text : "") {}
  /// Fills a "%i".
  atr_SubstituteFormat(int number, int value) noexcept;

private:
  friend class atr_translate;
  int m_number;                 ///< one-based position of the placeholder in the template
  char const* m_text = nullptr; ///< null for an integer
  char m_digits[12] = {};
};

/// Makes a message from a template and its arguments.
///
///     atr_translate message("Failed to open file %s.");
///     message.Substitute(atr_SubstituteFormat(1, path));
///     throw SomeError(message.Result());
///
/// The template is also the key of its translation in the catalogue. Placeholders 1 to 4 can be filled.
class ORX_EXPORT atr_translate {
public:
  /// Returns the translation of a template, or null when there is none. The catalogue owns the texts.
  using Catalogue = char const* (*)(char const* messageTemplate);
  /// Installs the catalogue of the process and returns the former catalogue. Null, as at the start, stands
  /// for no translations.
  static Catalogue SetCatalogue(Catalogue catalogue) noexcept;

  /// The template is not copied; it is a literal.
  explicit atr_translate(char const* messageTemplate);
  /// Fills a placeholder; does nothing when the template has none of this number and kind. Substituted text
  /// is not searched for placeholders. A placeholder that is not filled stays in the result as it is.
  void Substitute(atr_SubstituteFormat const& argument);
  /// The message with the arguments so far.
  atr_String Result() const;

private:
  static constexpr int maxArguments = 4;
  char const* m_template;
  char const* m_values[maxArguments] = {}; ///< of placeholder 1, 2, ...; null: not filled
  atr_String m_digits[maxArguments];       ///< keeps the text of integers
};
