#include "core/atr_translate.h"

#include <cstdio>
#include <string>

namespace {

atr_translate::Catalogue installedCatalogue = nullptr;

bool IsPlaceholder(char const* p) noexcept { return p[0] == '%' && (p[1] == 's' || p[1] == 'i'); }

/// Returns the kind ('s' or 'i') of placeholder `number` (one-based) of a template; '\0' when it has fewer.
char PlaceholderKind(char const* text, int number) noexcept {
  for (; *text != '\0'; ++text)
    if (IsPlaceholder(text) && --number == 0) return text[1];
  return '\0';
}

} // namespace

atr_SubstituteFormat::atr_SubstituteFormat(int number, int value) noexcept : m_number(number) {
  std::snprintf(m_digits, sizeof m_digits, "%d", value);
}

atr_translate::Catalogue atr_translate::SetCatalogue(Catalogue catalogue) noexcept {
  Catalogue const before = installedCatalogue;
  installedCatalogue = catalogue;
  return before;
}

atr_translate::atr_translate(char const* messageTemplate) : m_template(messageTemplate) {
  char const* const translation =
      installedCatalogue != nullptr ? installedCatalogue(messageTemplate) : nullptr;
  if (translation != nullptr) m_template = translation;
}

void atr_translate::Substitute(atr_SubstituteFormat const& argument) {
  if (argument.m_number < 1 || argument.m_number > maxArguments) return;
  bool const isText = argument.m_text != nullptr;
  if (PlaceholderKind(m_template, argument.m_number) != (isText ? 's' : 'i')) return;
  int const index = argument.m_number - 1;
  if (!isText) m_digits[index] = atr_String(argument.m_digits);
  m_values[index] = isText ? argument.m_text : m_digits[index].AsText();
}

atr_String atr_translate::Result() const {
  std::string text;
  int placeholder = 0;
  for (char const* p = m_template; *p != '\0'; ++p) {
    char const* const value =
        IsPlaceholder(p) && placeholder++ < maxArguments ? m_values[placeholder - 1] : nullptr;
    if (value == nullptr) {
      text += *p;
      continue;
    }
    text += value;
    ++p;
  }
  return atr_String(text.c_str());
}
