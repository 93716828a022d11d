#pragma once

#include "core/atr_String.h"
#include "core/orx_export.h"
#include "sim/ORXSimArray.h"
#include "sim/ORXSimGrid.h"
#include "sim/ORXSimIdentifiers.h"
#include "sim/ORXSimRange.h"

/// A copy of the types of a context, as they were when the snapshot was taken. Indices are zero-based, in the
/// order of definition.
class ORX_EXPORT ORXSimTypeSchemaSnapshot {
public:
  ORXSimTypeSchemaSnapshot() noexcept = default;
  explicit ORXSimTypeSchemaSnapshot(ORXSimArray<atr_String> const& names) : m_names(names) {}

  int Size() const noexcept { return m_names.Size(); }
  // Look-up; an index outside of 0 ... Size() - 1 raises ORXSimException invalidArgument (20)

  ORXSimTypeID TypeID(int index) const;
  atr_String const& Name(int index) const;

private:
  ORXSimArray<atr_String> m_names;
};

/// A handle on a context: a partition of a file in which collections and distributions live. The handle is a
/// copy of the identifier; the file owns the context.
///
/// Errors are ORXSimException, with their numbers: every operation but ID raises staleIdentifier (10) once
/// the file is closed. After an error nothing has changed.
class ORX_EXPORT ORXSimContext {
public:
  /// Accepts any identifier; the operations check it.
  explicit ORXSimContext(ORXSimContextID const& id) noexcept : m_id(id) {}

  ORXSimContextID ID() const noexcept { return m_id; }
  ORXSimNamespaceID NamespaceID() const;

  // Creation

  // All but DropTempDistribution raise writeFailed (70) when the file is read-only, and all raise
  // invalidArgument (20) for an argument that cannot be right. New objects are in the file with the next
  // commit, see ORXSimTransaction.

  /// Makes a collection with the labels 0 ... size-1; size >= 0. It grows when a member set names a label
  /// that it lacks. `type` is an index of the schema, or -1 for none; it is not checked.
  ORXSimCollectionID CreateCollection(int size, ORXSimTypeID type) const;
  /// Makes a persistent distribution over the grid, without a drawer: an ORXSimTransfer makes its cells.
  /// The grid has 1 to 32 collections of this context, all different (colour variants count as different);
  /// the range is not untyped; the type is of the schema, or -1 for none.
  ORXSimDistributionID CreateDistribution(ORXSimGrid const& grid, ORXSimRangeType const& range,
                                          ORXSimTypeID type) const;
  /// Makes a distribution that lives until it is dropped or its file is closed. No later opening sees it.
  ORXSimDistributionID CreateTempDistribution(ORXSimGrid const& grid, ORXSimRangeType const& range,
                                              ORXSimTypeID type) const;
  /// Ends a temporary distribution and frees its cells. Its identifier is refused from now on, and no
  /// transaction brings it back. Raises invalidArgument (20) for a persistent distribution.
  void DropTempDistribution(ORXSimDistributionID const& id) const;
  /// Finds the type with this name in the schema, or adds it; returns its zero-based index. The name is
  /// copied and has 1 to 255 bytes, else invalidArgument (20).
  int DefineType(char const* name) const;

  // Contents

  ORXSimTypeSchemaSnapshot Schema() const;
  /// The collections in the order of their creation, without colour variants.
  ORXSimArray<ORXSimCollectionID> Collections() const;
  /// The persistent distributions in the order of their creation.
  ORXSimArray<ORXSimDistributionID> Distributions() const;

private:
  ORXSimContextID m_id;
};
