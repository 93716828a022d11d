#include "core/atr_String.h"

#include "core/mem_Allocator.h"

#include <cstring>
#include <new>

atr_StringBase::atr_StringBase(char const* text) {
  if (text == nullptr) return;
  std::size_t const bytes = std::strlen(text) + 1;
  mem_Array<char> copy = mem_MakeArray<char>(static_cast<std::int64_t>(bytes));
  std::memcpy(copy.get(), text, bytes);
  m_useCount = new (mem_OperatorNewTinyThrow(sizeof(std::int32_t))) std::int32_t(1);
  m_text = copy.release();
}

atr_StringBase::atr_StringBase(atr_StringBase const& other) noexcept
    : m_text(other.m_text), m_useCount(other.m_useCount) {
  if (m_useCount != nullptr) ++*m_useCount;
}

atr_StringBase::~atr_StringBase() {
  if (m_useCount != nullptr && --*m_useCount == 0) Delete(m_text, m_useCount);
}

void atr_StringBase::Delete(char* text, std::int32_t* useCount) noexcept {
  mem_Free(text);
  mem_Free(useCount);
}

atr_String& atr_String::operator=(atr_String const& other) noexcept {
  if (this == &other) return *this;
  if (other.m_useCount != nullptr) ++*other.m_useCount;
  if (m_useCount != nullptr && --*m_useCount == 0) Delete(m_text, m_useCount);
  m_text = other.m_text;
  m_useCount = other.m_useCount;
  return *this;
}

bool operator==(atr_String const& a, atr_String const& b) noexcept {
  return std::strcmp(a.AsText(), b.AsText()) == 0;
}
