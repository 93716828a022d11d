#pragma once

#include "sim/ORXSimCSet.h"
#include "sim/ORXSimDistribution.h"
#include "sim/ORXSimIdentifiers.h"
#include "sim/ORXSimRange.h"
#include "sim/impl/CollectionMembers.h"

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

// What the library knows of an open file's structure: plain records in memory, written to the file at a
// commit.

namespace orx::store {
class DenseDrawer;
class SparseDrawer;
} // namespace orx::store

namespace orx::sim {

class Context;

struct CollectionRecord {
  ORXSimTypeID type;
  CollectionMembers members;
  std::vector<int> colors;                          ///< of the variants that were created
  std::unordered_multimap<std::size_t, int> sets{}; ///< its member sets by the hash of their labels
  bool isSaved = false;
};

struct SetRecord {
  int collection;
  ORXSimIndexSetPtr members;
  bool isTemporary; ///< not to be saved
  bool isSaved = false;
};

/// The cells of a distribution. Exactly one of `dense` and `sparse` is set.
struct Drawer {
  Drawer();
  Drawer(Drawer const&) = delete;
  Drawer& operator=(Drawer const&) = delete;
  ~Drawer();

  std::vector<int> sets;   ///< number of the member set along each dimension
  std::vector<int> sizes;  ///< theirs
  std::vector<int> chunks; ///< as given; empty: stored whole
  ORXSimSerializationType serialization;
  std::unique_ptr<store::DenseDrawer> dense;
  std::unique_ptr<store::SparseDrawer> sparse;
  bool isSaved = false; ///< linked where the file has its distribution's drawer
};

struct DistributionRecord {
  Context* context = nullptr; ///< null: the file is closed, or the distribution was abandoned
  ORXSimDistributionID id;
  std::vector<ORXSimIDMinor> grid;
  ORXSimRangeType range;
  ORXSimTypeID type;
  bool isTemporary = false;
  std::shared_ptr<Drawer> drawer; ///< null: none yet
  bool isSaved = false;
  bool hasSavedDrawer = false; ///< `drawer` or one that it replaced is linked in the file

  int Rank() const noexcept { return static_cast<int>(grid.size()); }
  /// Raises staleIdentifier when there is no context.
  Context& InContext() const;
  /// "distribution 3 of context 0 of FILE", for messages.
  std::string Name() const;
  ORXSimCollectionID Collection(int dim) const;
  ORXSimCSetID DimensionSet(int dim) const; ///< needs a drawer
  ORXSimDrawerDescription Describe() const; ///< needs a drawer
};

} // namespace orx::sim
