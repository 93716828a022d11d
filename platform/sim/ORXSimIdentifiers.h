#pragma once

#include "core/orx_export.h"

#include <cstdint>

// Identifiers of database objects: small values, copied freely. They own nothing and check nothing. They name
// objects of an open file; once the file is closed, every operation refuses them (ORXSimException
// staleIdentifier, 10). Each opening of a file gives other identifiers, in the same order. Numbers are
// zero-based unless stated otherwise.
// A null dynamic identifier has kind 0; its first context word is 0, and all other words are -1 (all ones).

/// An open database file.
struct ORXSimFileID {
  std::uint32_t file = 0; ///< 0: none
  friend bool operator==(ORXSimFileID const&, ORXSimFileID const&) = default;
};

/// A namespace; the default namespace has both words -1.
struct ORXSimNamespaceID {
  std::int32_t first = -1;
  std::int32_t second = -1;
  ORXSimNamespaceID() noexcept = default;
  ORXSimNamespaceID(std::int32_t firstWord, std::int32_t secondWord) noexcept
      : first(firstWord), second(secondWord) {}
  friend bool operator==(ORXSimNamespaceID const&, ORXSimNamespaceID const&) = default;
};

/// A context of an open database file.
struct ORXSimContextID {
  std::uint32_t file = 0;      ///< number of the open file; 0: none
  std::uint32_t context = ~0u; ///< number inside the file
  friend bool operator==(ORXSimContextID const&, ORXSimContextID const&) = default;
};

/// The type of a collection or distribution: its index in the schema of the context; -1: no type.
struct ORXSimTypeID {
  std::int32_t type = -1;
  ORXSimTypeID() noexcept = default;
  explicit ORXSimTypeID(std::int32_t word) noexcept : type(word) {}
  friend bool operator==(ORXSimTypeID const&, ORXSimTypeID const&) = default;
};

/// A collection inside its context, with the colour of the variant.
struct ORXSimIDMinor {
  std::int32_t collection = -1;
  std::int32_t color = -1;
  friend bool operator==(ORXSimIDMinor const&, ORXSimIDMinor const&) = default;
};

/// An object inside its context: a collection (memberSet -1), or a member set of this collection.
struct ORXSimDynamicDataID {
  ORXSimIDMinor minor;
  std::int32_t memberSet = -1;
  friend bool operator==(ORXSimDynamicDataID const&, ORXSimDynamicDataID const&) = default;
};

/// The common form of collection and member-set identifiers. The kind is 2 for a collection, 5 for a member
/// set, 0 for null.
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
  ORXSimIDMinor Minor() const noexcept { return m_data.minor; }
  ORXSimTypeID Type() const noexcept { return m_type; }
  bool Equal(ORXSimDynamicID const& other) const noexcept;

private:
  int m_kind = 0;
  ORXSimContextID m_context;
  ORXSimDynamicDataID m_data;
  ORXSimTypeID m_type;
};

/// A collection, or a colour variant of a collection: the same members under another identity, so that rows
/// and columns of one grid can have the same members. Colour 0 is the collection itself.
class ORX_EXPORT ORXSimCollectionID : public ORXSimDynamicID {
public:
  static constexpr int kind = 2;
  /// The null collection.
  ORXSimCollectionID() noexcept = default;
  ORXSimCollectionID(ORXSimContextID context, ORXSimIDMinor minor, ORXSimTypeID type) noexcept
      : ORXSimDynamicID(kind, context, {.minor = minor, .memberSet = -1}, type) {}

  /// Returns `minor` with its colour replaced.
  static ORXSimIDMinor SetColor(ORXSimIDMinor minor, int color) noexcept {
    minor.color = color;
    return minor;
  }
  /// The colour variant of this collection; the null collection stays null.
  ORXSimCollectionID ColorVariant(int color) const noexcept;
};

/// A member set: an ordered selection of the members of a collection.
class ORX_EXPORT ORXSimCSetID : public ORXSimDynamicID {
public:
  static constexpr int kind = 5;
  /// The null (undefined) member set.
  ORXSimCSetID() noexcept = default;
  ORXSimCSetID(ORXSimContextID context, ORXSimDynamicDataID data, ORXSimTypeID type) noexcept
      : ORXSimDynamicID(kind, context, data, type) {}
  /// Converts a dynamic identifier of kind 5; every other kind gives the null set.
  explicit ORXSimCSetID(ORXSimDynamicID const& id) noexcept
      : ORXSimDynamicID(id.Kind() == kind ? id : ORXSimDynamicID()) {}

  /// The collection whose members the set selects; null for the null set.
  ORXSimCollectionID Collection() const noexcept;
  /// The same members as members of the colour variant; the null set stays null.
  ORXSimCSetID OnColorVariant(int color) const noexcept;
};

/// A distribution; hosts only copy, compare and test it for null.
struct ORXSimDistributionID {
  ORXSimContextID context;
  std::uint32_t handle = 0; ///< one-based number inside the context; 0: the null distribution
  bool IsNull() const noexcept { return handle == 0; }
  friend bool operator==(ORXSimDistributionID const&, ORXSimDistributionID const&) = default;
};
