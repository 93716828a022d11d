#include "sim/ORXSimIdentifiers.h"

bool ORXSimDynamicID::Equal(ORXSimDynamicID const& other) const noexcept {
  return m_kind == other.m_kind && m_context == other.m_context && m_data == other.m_data &&
         m_type == other.m_type;
}

ORXSimCollectionID ORXSimCollectionID::ColorVariant(int color) const noexcept {
  if (IsNull()) return {};
  return {Context(), SetColor(Minor(), color), Type()};
}

ORXSimCollectionID ORXSimCSetID::Collection() const noexcept {
  if (IsNull()) return {};
  return {Context(), Minor(), Type()};
}

ORXSimCSetID ORXSimCSetID::OnColorVariant(int color) const noexcept {
  if (IsNull()) return {};
  ORXSimDynamicDataID data = Data();
  data.minor = ORXSimCollectionID::SetColor(data.minor, color);
  return {Context(), data, Type()};
}
