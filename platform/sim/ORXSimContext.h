#pragma once

#include "core/atr_String.h"
#include "core/orx_export.h"
#include "sim/ORXSimArray.h"
#include "sim/ORXSimGrid.h"
#include "sim/ORXSimIdentifiers.h"
#include "sim/ORXSimRange.h"

/// The types of a context as they were when the snapshot was taken: index (0, 1, ...) to type and name.
class ORX_EXPORT ORXSimTypeSchemaSnapshot {
public:
  ORXSimTypeSchemaSnapshot() noexcept = default;
  explicit ORXSimTypeSchemaSnapshot(ORXSimArray<atr_String> const& names) : m_names(names) {}

  int Size() const noexcept { return m_names.Size(); }
  /// Raises invalidArgument when there is no such index.
  ORXSimTypeID TypeID(int index) const;
  atr_String const& Name(int index) const;

private:
  ORXSimArray<atr_String> m_names;
};

/// A handle on a context: a partition of a file in which collections and distributions live.
class ORX_EXPORT ORXSimContext {
public:
  explicit ORXSimContext(ORXSimContextID const& id) noexcept : m_id(id) {}

  ORXSimContextID ID() const noexcept { return m_id; }
  ORXSimNamespaceID NamespaceID() const;

  // Creation; each raises staleIdentifier when the context's file is closed, writeFailed when it is read-only

  /// A collection of the members 0 ... size-1 that grows when a member set names a label it does not have.
  ORXSimCollectionID CreateCollection(int size, ORXSimTypeID type) const;
  /// A persistent distribution over the grid, still without a drawer. All collections of the grid belong to
  /// this context and differ from each other.
  ORXSimDistributionID CreateDistribution(ORXSimGrid const& grid, ORXSimRangeType const& range,
                                          ORXSimTypeID type) const;
  /// A distribution that lives until it is dropped or its file is closed, and is never seen in the file.
  ORXSimDistributionID CreateTempDistribution(ORXSimGrid const& grid, ORXSimRangeType const& range,
                                              ORXSimTypeID type) const;
  /// Ends a temporary distribution; its identifier is refused from now on, and no transaction brings it back.
  /// Raises invalidArgument for another one.
  void DropTempDistribution(ORXSimDistributionID const& id) const;
  /// Adds a type to the schema, or finds it; returns its index. The name has 1 to 255 bytes.
  int DefineType(char const* name) const;

  // What is inside

  ORXSimTypeSchemaSnapshot Schema() const;
  ORXSimArray<ORXSimCollectionID> Collections() const;
  /// The persistent distributions in the order of their creation.
  ORXSimArray<ORXSimDistributionID> Distributions() const;

private:
  ORXSimContextID m_id;
};
