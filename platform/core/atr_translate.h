#pragma once

#include "core/atr_String.h"
#include "core/orx_export.h"

/// One argument of a message: which placeholder it fills, and with what.
class ORX_EXPORT atr_SubstituteFormat {
public:
  /// Fills a "%s". The text is lent for the lifetime of the translation; null reads as the empty text.
  atr_SubstituteFormat(int number, char const* text) noexcept : m_number(number), m_text(text ? text : "") {}
  /// Fills a "%i".
  atr_SubstituteFormat(int number, int value) noexcept;

private:
  friend class atr_translate;
  int m_number;                 ///< one-based position of the placeholder in the template
  char const* m_text = nullptr; ///< null for an integer
  char m_digits[12] = {};
};

/// A message in the making: template, substitutions, result.
///
///     atr_translate message("Failed to open file %s.");
///     message.Substitute(atr_SubstituteFormat(1, path));
///     throw SomeError(message.Result());
///
/// The template is also the key under which a translation of it is looked up.
class ORX_EXPORT atr_translate {
public:
  /// Gives the translation of a template, or null when there is none.
  using Catalogue = char const* (*)(char const* messageTemplate);
  /// Installs the process's catalogue and returns the one before; null (at start): no translations.
  static Catalogue SetCatalogue(Catalogue catalogue) noexcept;

  explicit atr_translate(char const* messageTemplate);
  /// Replaces placeholder `argument.number` if it exists and has the argument's kind. Substituted text is
  /// never searched for placeholders. An unfilled placeholder stays in the result as it is.
  void Substitute(atr_SubstituteFormat const& argument);
  atr_String Result() const;

private:
  static constexpr int maxArguments = 4;
  char const* m_template;
  char const* m_values[maxArguments] = {}; ///< by placeholder, null while unfilled
  atr_String m_digits[maxArguments];       ///< keeps the text of integers
};
