#include "sim/ORXSimIdentifiers.h"

bool ORXSimDynamicID::Equal(ORXSimDynamicID const& other) const noexcept {
  return m_kind == other.m_kind && m_context == other.m_context && m_data == other.m_data &&
         m_type == other.m_type;
}
