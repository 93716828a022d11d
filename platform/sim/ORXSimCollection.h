#pragma once

#include "core/orx_export.h"
#include "sim/ORXSimIdentifiers.h"

/// A handle on a collection: a set of members of one kind, known by their labels.
class ORX_EXPORT ORXSimCollection {
public:
  explicit ORXSimCollection(ORXSimCollectionID const& id) noexcept : m_id(id) {}

  ORXSimCollectionID ID() const noexcept { return m_id; }
  /// Number of members.
  int Size() const;

  // Member sets. Labels are at least 0; those that the collection does not have are added to it. Equal sets
  // of one collection share an identifier. Labels may repeat; a label then stands for its last position.

  /// The members with these labels in this order.
  ORXSimCSetID CreateOrderedCSet(int const* labels, int count) const;
  /// The same, not kept in the file unless a drawer comes to depend on it.
  ORXSimCSetID CreateTempOrderedCSet(int const* labels, int count) const;
  /// Ends a temporary set that was made here; its identifier is refused from now on. A set that was asked for
  /// several times ends with the last drop; one that a drawer stands on stays.
  void DropTempCSet(ORXSimCSetID const& id) const;
  /// The labels start, start + stride, ..., `count` of them; `blockLength` members at each step, of which
  /// only 1 is supported.
  ORXSimCSetID CreateCSetStrided(int start, int count, int stride, int blockLength) const;
  /// All members the collection has now.
  ORXSimCSetID BiggestCSetID() const;

  /// The variant of this collection with that colour, at least 0.
  ORXSimCollectionID CreateColorVariant(int color) const;

private:
  ORXSimCollectionID m_id;
};
