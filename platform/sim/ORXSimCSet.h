#pragma once

#include "core/orx_export.h"
#include "sim/ORXSimIdentifiers.h"

#include <memory>

/// A counted pointer: the last copy frees the object.
template<class T>
using che_RefPtr = std::shared_ptr<T>;

class ORXSimIndexSet;
using ORXSimIndexSetPtr = che_RefPtr<ORXSimIndexSet const>;

/// The labels of a member set, in the order of the set. Labels are integers from 0 to 2147483647. The object
/// shares them with the open file and can still read them after the file was closed; copies share them too.
class ORX_EXPORT ORXSimCSet {
public:
  /// Raises ORXSimException staleIdentifier (10) for the null set, for a set that does not exist (any more)
  /// and for a set of a closed file.
  explicit ORXSimCSet(ORXSimCSetID const& id);

  ORXSimCSetID ID() const noexcept { return m_id; }
  /// Number of labels; a label that repeats counts each time.
  int Size() const noexcept;
  /// Writes the labels in set order to `out`, the caller's array of at least Size() integers.
  void OrderedMembers(int* out) const;
  /// True when some label is in both sets. The collections of the sets are not compared.
  bool HasOverlap(ORXSimCSet const& other) const;

private:
  ORXSimCSetID m_id;
  ORXSimIndexSetPtr m_members; ///< never null
};
