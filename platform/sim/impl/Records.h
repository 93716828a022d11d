#pragma once

#include "sim/ORXSimCSet.h"
#include "sim/ORXSimDistribution.h"
#include "sim/ORXSimIdentifiers.h"
#include "sim/ORXSimRange.h"
#include "sim/impl/CollectionMembers.h"

#include <cstdint>
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
  std::vector<int> colors{};                          ///< of the variants that were created
  std::unordered_multimap<std::uint64_t, int> sets{}; ///< its member sets by the digest of their labels
  // What of it is in the file.
  bool isSaved = false;
  int savedMembers = 0;
  std::size_t savedColors = 0;
};

/// Where a set that was read from the file has its labels there: those of another set, then a progression or
/// a list.
struct SavedLabels {
  int count = 0;
  int start = 0;
  int stride = 1;
  int list = -1; ///< where it begins in the context's saved numbers; -1: a progression
};

struct SetRecord {
  int collection = -1;
  ORXSimIndexSetPtr members; ///< null until they are first asked for, see Context::SetAt
  int size = 0;
  std::uint64_t digest = 0; ///< of the labels
  int head = -1;            ///< the set that it continues; -1: none
  SavedLabels saved{};
  bool isTemporary = false; ///< saved only when a saved drawer stands on it
  int users = 0;            ///< of a temporary one: how often it was asked for and not dropped
  bool isSaved = false;
  int fileNumber = -1; ///< -1: not known yet
};

/// The cells of a distribution. One of `dense` and `sparse` is set, none before a saved drawer is first used,
/// see DistributionRecord::OpenDrawer.
struct Drawer {
  Drawer();
  Drawer(Drawer const&) = delete;
  Drawer& operator=(Drawer const&) = delete;
  ~Drawer();

  std::vector<int> sets;                              ///< number of the member set along each dimension
  std::vector<std::shared_ptr<SetRecord>> heldSets{}; ///< these, and former ones: they are not dropped
  std::vector<int> sizes;                             ///< theirs
  std::vector<int> chunks;                            ///< as given; empty: stored whole
  ORXSimSerializationType serialization;
  std::unique_ptr<store::DenseDrawer> dense;
  std::unique_ptr<store::SparseDrawer> sparse;
  bool isSaved = false;     ///< linked where the file has its distribution's drawer
  bool mayBeLonger = false; ///< in the file, after a transaction that was cut off
};

struct DistributionRecord {
  Context* context = nullptr; ///< null: the file is closed, or the distribution was abandoned
  ORXSimDistributionID id;
  std::vector<ORXSimIDMinor> grid;
  ORXSimRangeType range;
  ORXSimTypeID type;
  bool isTemporary = false;
  std::shared_ptr<Drawer> drawer; ///< null: none yet
  bool hasSavedDrawer = false;    ///< `drawer` or one that it replaced is linked in the file
  int row = -1;                   ///< in the file's table of distributions; -1: not saved
  int numbers = -1;               ///< where its grid, sets and chunk lengths are among the saved numbers

  int Rank() const noexcept { return static_cast<int>(grid.size()); }
  /// A temporary one has no place in the file.
  std::string Path() const;
  /// Finds the cells of a saved drawer; raises damaged when they are not as they should be.
  void OpenDrawer() const;
  /// Raises staleIdentifier when there is no context.
  Context& InContext() const;
  /// "distribution 3 of context 0 of FILE", for messages.
  std::string Name() const;
  ORXSimCollectionID Collection(int dim) const;
  ORXSimCSetID DimensionSet(int dim) const; ///< needs a drawer
  ORXSimDrawerDescription Describe() const; ///< needs a drawer
};

} // namespace orx::sim
