#pragma once

#include "core/orx_export.h"
#include "sim/ORXSimArray.h"
#include "sim/ORXSimIdentifiers.h"
#include "sim/ORXSimRange.h"

#include <cstdint>
#include <memory>

namespace orx::sim {
struct DistributionRecord;
}

/// How the cells of a drawer, or of a transfer, are laid out.
class ORXSimSerializationType {
public:
  enum class Layout : int {
    Dense = 0,
    Sparse = 3,   ///< compressed rows of a general matrix
    SparseSym = 4 ///< compressed rows of a symmetric matrix, the diagonal apart
  };

  /// Dense.
  ORXSimSerializationType() noexcept = default;
  ORXSimSerializationType& SetSparse() noexcept { return Set(Layout::Sparse); }
  ORXSimSerializationType& SetSparseSym() noexcept { return Set(Layout::SparseSym); }

  Layout Kind() const noexcept { return m_layout; }
  bool IsSparse() const noexcept { return m_layout != Layout::Dense; }
  friend bool operator==(ORXSimSerializationType const&, ORXSimSerializationType const&) = default;

private:
  ORXSimSerializationType& Set(Layout layout) noexcept {
    m_layout = layout;
    return *this;
  }
  Layout m_layout = Layout::Dense;
};

/// What a drawer looks like: a copy of the facts, as they were when they were asked for.
class ORX_EXPORT ORXSimDrawerDescription {
public:
  ORXSimDrawerDescription() = default;

  int NumDimensions() const noexcept { return m_sets.Size(); }
  /// Number of cells along a dimension.
  int DimensionSize(int dim) const noexcept { return m_sizes[dim]; }
  /// The members that stand along a dimension, in their order.
  ORXSimCSetID DimensionCSetID(int dim) const noexcept { return m_sets[dim]; }
  /// The chunk lengths as they were given, one per dimension; empty for a drawer stored whole.
  ORXSimArray<int> const& ChunkSizes() const noexcept { return m_chunks; }
  ORXSimSerializationType Serialization() const noexcept { return m_serialization; }
  /// Number of data items stored for a buffer. Dense: the cells for buffer 0. Sparse: stored entries for
  /// buffers 0 and 1, rows + 1 for buffer 2, rows for buffer 3 where there is a diagonal. 0 for any other.
  std::int64_t DataSizeItems(int buffer) const noexcept;
  /// The dimension along which extension costs the new cells only: 0 for a dense drawer, which grows along
  /// any other too; -1 for one that cannot be extended.
  int ExtendableDimension() const noexcept { return m_extendableDimension; }

private:
  friend struct orx::sim::DistributionRecord;

  ORXSimArray<ORXSimCSetID> m_sets;
  ORXSimArray<int> m_sizes;
  ORXSimArray<int> m_chunks;
  ORXSimSerializationType m_serialization;
  std::int64_t m_entries = 0; ///< stored entries of a sparse drawer
  bool m_hasDiagonal = false;
  int m_extendableDimension = -1;
};

/// The description of a drawer that is kept in the file.
class ORX_EXPORT ORXSimPersistentDrawerDesc : public ORXSimDrawerDescription {
public:
  ORXSimPersistentDrawerDesc() = default;
  explicit ORXSimPersistentDrawerDesc(ORXSimDrawerDescription const& facts)
      : ORXSimDrawerDescription(facts) {}
};

/// A counted share in a distribution's record.
class ORX_EXPORT ORXSimParticipation {
public:
  explicit ORXSimParticipation(std::shared_ptr<orx::sim::DistributionRecord> record) noexcept
      : m_record(static_cast<std::shared_ptr<orx::sim::DistributionRecord>&&>(record)) {}
  ORXSimParticipation(ORXSimParticipation const&) noexcept = default;
  ORXSimParticipation& operator=(ORXSimParticipation const&) noexcept = default;
  ~ORXSimParticipation();

  orx::sim::DistributionRecord* Record() const noexcept { return m_record.get(); }

private:
  std::shared_ptr<orx::sim::DistributionRecord> m_record;
};

/// A handle on a distribution: a field over a grid, one cell per tuple of members. Its cells live in a
/// drawer, which a transfer creates; a distribution has at most one. Copies share the record.
class ORX_EXPORT ORXSimDistribution {
public:
  /// On nothing: to be assigned to.
  ORXSimDistribution() noexcept;
  /// Raises staleIdentifier for a distribution that does not exist (any more), the null one included.
  explicit ORXSimDistribution(ORXSimDistributionID const& id);

  /// The null identifier for a handle on nothing.
  ORXSimDistributionID ID() const noexcept;
  int NumDimensions() const noexcept;
  ORXSimRangeType RangeType() const;
  /// No type (-1) for an untyped distribution.
  ORXSimTypeID Type() const;
  ORXSimCollectionID Collection(int dim) const;
  /// Fills `out` with the descriptions of the drawers: one, or none before a drawer was created.
  void QueryDrawers(ORXSimArray<ORXSimPersistentDrawerDesc>& out) const;

private:
  friend class ORXSimTransfer;
  ORXSimParticipation m_participation;
};
