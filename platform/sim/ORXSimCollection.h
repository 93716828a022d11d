#pragma once

#include "core/orx_export.h"
#include "sim/ORXSimIdentifiers.h"

/// A handle on a collection: the members of one kind (nodes, equations, columns), each known by a label, an
/// integer from 0 to 2147483647. The handle is a copy of the identifier; the file owns the collection.
///
/// Errors are ORXSimException, with their numbers: every operation but ID raises staleIdentifier (10) once
/// the file is closed or the collection was abandoned with its transaction; operations that add to the file
/// raise writeFailed (70) when it is read-only. After an error nothing has changed.
class ORX_EXPORT ORXSimCollection {
public:
  /// Accepts any identifier; the operations check it.
  explicit ORXSimCollection(ORXSimCollectionID const& id) noexcept : m_id(id) {}

  ORXSimCollectionID ID() const noexcept { return m_id; }
  /// Number of members.
  int Size() const;

  // Member sets

  // A set lists labels in an order. Labels that the collection does not have are added to it. Equal sets of
  // one collection share an identifier. Labels may repeat; a label then stands for its last position.
  // A negative label or count, and a collection or context that is full, raise invalidArgument (20).

  /// Makes the set of the `count` labels in `labels`, in this order; the array is read during the call only.
  ORXSimCSetID CreateOrderedCSet(int const* labels, int count) const;
  /// Makes the same set for this session only: a commit saves it only when a saved drawer has it along a
  /// dimension. On a read-only file the collection must have the labels already, else writeFailed (70).
  ORXSimCSetID CreateTempOrderedCSet(int const* labels, int count) const;
  /// Takes back one CreateTempOrderedCSet. The last drop of a temporary set ends it: its identifier is
  /// refused from then on. A set that a drawer has along a dimension, and a set that is not temporary, stay.
  void DropTempCSet(ORXSimCSetID const& id) const;
  /// Makes the set of the `count` labels start, start + stride, ... The stride may be 0 or negative as long
  /// as all labels lie in 0 ... 2147483647; `blockLength` is 1. Else invalidArgument (20).
  ORXSimCSetID CreateCSetStrided(int start, int count, int stride, int blockLength) const;
  /// The set of all members that the collection has now. On a read-only file it is temporary.
  ORXSimCSetID BiggestCSetID() const;

  /// Notes in the file that the colour exists, and returns the variant of this collection with the colour.
  /// Colour 0 is the collection itself; a negative colour raises invalidArgument (20).
  ORXSimCollectionID CreateColorVariant(int color) const;

private:
  ORXSimCollectionID m_id;
};
