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

// The catalogue of an open file: plain records in memory. A commit writes them to the file.

namespace orx::store {
class DenseDrawer;
class SparseDrawer;
} // namespace orx::store

namespace orx::sim {

class Context;

struct CollectionRecord {
  ORXSimTypeID type;
  CollectionMembers members;
  std::vector<int> colors{};                          ///< colours of its variants
  std::unordered_multimap<std::uint64_t, int> sets{}; ///< numbers of its member sets by their digests
  // The share of the record that the file has
  bool isSaved = false;
  int savedMembers = 0;
  std::size_t savedColors = 0;
};

/// The labels that a set read from the file has beyond its head: a progression, or a list.
struct SavedLabels {
  int count = 0;
  int start = 0;
  int stride = 1;
  int list = -1; ///< index of its first label in the context's saved numbers; -1: a progression
};

struct SetRecord {
  int collection = -1;
  ORXSimIndexSetPtr members; ///< null until Context::SetAt reads them
  int size = 0;
  std::uint64_t digest = 0; ///< of the labels
  int head = -1;            ///< number of the set that this set continues; -1: none
  SavedLabels saved{};
  bool isTemporary = false; ///< saved only when a saved drawer has it along a dimension
  int users = 0;            ///< temporary set: number of requests that were not dropped yet
  bool isSaved = false;
  int fileNumber = -1; ///< number in the file; -1: none yet
};

/// The cells of a distribution. Either `dense` or `sparse` is set; of a saved drawer, neither before
/// DistributionRecord::OpenDrawer.
struct Drawer {
  Drawer();
  Drawer(Drawer const&) = delete;
  Drawer& operator=(Drawer const&) = delete;
  ~Drawer();

  /// Gives the drawer another member set along a dimension, a symmetric one along both.
  void SetAlong(std::size_t dim, int set, int size);

  /// Number of the present shape, which no other drawer has and none had before: a selection that was checked
  /// against it still fits.
  std::uint64_t shape;
  std::vector<int> sets;                              ///< number of the member set along each dimension
  std::vector<std::shared_ptr<SetRecord>> heldSets{}; ///< these and former sets, kept from DropSet
  std::vector<int> sizes;                             ///< number of cells along each dimension
  std::vector<int> chunks;                            ///< lengths as given; empty: stored whole
  ORXSimSerializationType serialization;
  std::unique_ptr<store::DenseDrawer> dense; ///< of a symmetric matrix a SymmetricDrawer
  std::unique_ptr<store::SparseDrawer> sparse;
  bool isSaved = false;     ///< true when it lies at its own path, not at a pending path
  bool mayBeLonger = false; ///< true when a crash may have left the dataset longer than `sizes`
};

struct DistributionRecord {
  Context* context = nullptr; ///< null: the file is closed, or the distribution was abandoned
  ORXSimDistributionID id;
  std::vector<ORXSimIDMinor> grid;
  ORXSimRangeType range;
  ORXSimTypeID type;
  bool isTemporary = false;
  std::shared_ptr<Drawer> drawer; ///< null: none yet
  bool hasSavedDrawer = false;    ///< true when the file has `drawer`, or a drawer that it replaces
  int row = -1;                   ///< in the file's table of distributions; -1: not saved
  int numbers = -1;               ///< index of its list in the table `numbers`; -1: not saved

  int Rank() const noexcept { return static_cast<int>(grid.size()); }
  /// Path of its group in the file. REQUIRES: not temporary.
  std::string Path() const;
  /// Opens a saved drawer, unless it is open; raises damaged when the file's datasets do not fit the record.
  void OpenDrawer() const;
  /// Raises staleIdentifier when there is no context.
  Context& InContext() const;
  /// "distribution 3 of context 0 of FILE", for messages.
  std::string Name() const;
  ORXSimCollectionID Collection(int dim) const;
  ORXSimCSetID DimensionSet(int dim) const; ///< REQUIRES: a drawer
  ORXSimDrawerDescription Describe() const; ///< REQUIRES: a drawer
};

} // namespace orx::sim
