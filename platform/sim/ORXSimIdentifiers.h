#pragma once

#include "core/orx_export.h"

#include <cstdint>

// Identifiers of database objects: small values, copied freely, valid while their file is open.
// A null identifier has kind 0, a zero first context word and all other words all ones.

/// A context of an open database file.
struct ORXSimContextID {
  std::uint32_t file = 0;      ///< open file it belongs to; 0: none
  std::uint32_t context = ~0u; ///< context inside that file
  friend bool operator==(ORXSimContextID const&, ORXSimContextID const&) = default;
};

/// The type of a collection or distribution; all ones: no type.
struct ORXSimTypeID {
  std::int32_t type = -1;
  friend bool operator==(ORXSimTypeID const&, ORXSimTypeID const&) = default;
};

/// The collection-local part of an identifier, its colour included.
struct ORXSimIDMinor {
  std::int32_t collection = -1;
  std::int32_t color = -1;
  friend bool operator==(ORXSimIDMinor const&, ORXSimIDMinor const&) = default;
};

/// What a dynamic identifier names inside its context: a collection, or a member set of it.
struct ORXSimDynamicDataID {
  ORXSimIDMinor minor;
  std::int32_t memberSet = -1;
  friend bool operator==(ORXSimDynamicDataID const&, ORXSimDynamicDataID const&) = default;
};

/// The common form of collection and member-set identifiers.
class ORX_EXPORT ORXSimDynamicID {
public:
  /// The null identifier.
  ORXSimDynamicID() noexcept = default;
  ORXSimDynamicID(int kind, ORXSimContextID context, ORXSimDynamicDataID data, ORXSimTypeID type) noexcept
      : m_kind(kind), m_context(context), m_data(data), m_type(type) {}

  int Kind() const noexcept { return m_kind; }
  bool IsNull() const noexcept { return m_kind == 0; }
  ORXSimContextID Context() const noexcept { return m_context; }
  ORXSimDynamicDataID Data() const noexcept { return m_data; }
  ORXSimTypeID Type() const noexcept { return m_type; }
  bool Equal(ORXSimDynamicID const& other) const noexcept;

private:
  int m_kind = 0;
  ORXSimContextID m_context;
  ORXSimDynamicDataID m_data;
  ORXSimTypeID m_type;
};

/// A member set: an ordered selection of the members of a collection.
class ORX_EXPORT ORXSimCSetID : public ORXSimDynamicID {
public:
  static constexpr int kind = 5;
  /// The null (undefined) member set.
  ORXSimCSetID() noexcept = default;
  ORXSimCSetID(ORXSimContextID context, ORXSimDynamicDataID data, ORXSimTypeID type) noexcept
      : ORXSimDynamicID(kind, context, data, type) {}
};
