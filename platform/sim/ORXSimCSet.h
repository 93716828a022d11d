#pragma once

#include "core/orx_export.h"
#include "sim/ORXSimIdentifiers.h"

#include <memory>

/// A counted pointer.
template<class T>
using che_RefPtr = std::shared_ptr<T>;

class ORXSimIndexSet;
using ORXSimIndexSetPtr = che_RefPtr<ORXSimIndexSet const>;

/// The members of a member set. It shares them with the file, and keeps them also when the file is closed.
class ORX_EXPORT ORXSimCSet {
public:
  /// Raises staleIdentifier for a set that does not exist (any more), the null set included.
  explicit ORXSimCSet(ORXSimCSetID const& id);

  ORXSimCSetID ID() const noexcept { return m_id; }
  /// Number of members.
  int Size() const noexcept;
  /// Writes the labels in set order; `out` has room for Size() integers.
  void OrderedMembers(int* out) const;
  /// Whether a label of this set is one of the other; the sets' collections are not compared.
  bool HasOverlap(ORXSimCSet const& other) const;

private:
  ORXSimCSetID m_id;
  ORXSimIndexSetPtr m_members; ///< never null
};
