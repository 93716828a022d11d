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
    Sparse = 3,    ///< compressed rows of a general matrix
    SparseSym = 4, ///< compressed rows of a symmetric matrix, with the diagonal in an array of its own
    /// A symmetric matrix of doubles, of which the file keeps one triangle of blocks. Buffers are those of a
    /// dense drawer; a cell above the diagonal is the one below.
    DenseSym = 5
  };

  /// Dense.
  ORXSimSerializationType() noexcept = default;
  ORXSimSerializationType& SetSparse() noexcept { return Set(Layout::Sparse); }
  ORXSimSerializationType& SetSparseSym() noexcept { return Set(Layout::SparseSym); }
  ORXSimSerializationType& SetDenseSym() noexcept { return Set(Layout::DenseSym); }

  Layout Kind() const noexcept { return m_layout; }
  bool IsSparse() const noexcept { return m_layout == Layout::Sparse || m_layout == Layout::SparseSym; }
  bool IsDenseSym() const noexcept { return m_layout == Layout::DenseSym; }
  friend bool operator==(ORXSimSerializationType const&, ORXSimSerializationType const&) = default;

private:
  ORXSimSerializationType& Set(Layout layout) noexcept {
    m_layout = layout;
    return *this;
  }
  Layout m_layout = Layout::Dense;
};

/// The shape and storage of a drawer: a copy, as they were when QueryDrawers was called. Dimensions and
/// buffers are zero-based; `dim` is not checked.
class ORX_EXPORT ORXSimDrawerDescription {
public:
  ORXSimDrawerDescription() = default;

  int NumDimensions() const noexcept { return m_sets.Size(); }
  /// Number of cells along a dimension.
  int DimensionSize(int dim) const noexcept { return m_sizes[dim]; }
  /// The member set along a dimension: its label k belongs to position k.
  ORXSimCSetID DimensionCSetID(int dim) const noexcept { return m_sets[dim]; }
  /// The chunk lengths in cells as they were given, one per dimension; empty for a drawer stored whole.
  ORXSimArray<int> const& ChunkSizes() const noexcept { return m_chunks; }
  ORXSimSerializationType Serialization() const noexcept { return m_serialization; }
  /// Number of values stored for a buffer of ORXSimTransfer. Dense: the cells for buffer 0. Sparse: stored
  /// entries for buffers 0 and 1, rows + 1 for buffer 2, rows for buffer 3 where there is a diagonal. 0 for
  /// every other buffer.
  std::int64_t DataSizeItems(int buffer) const noexcept;
  /// The dimension along which an extension costs the new cells only: 0 for a dense drawer, which can grow
  /// along every other dimension too (a symmetric one along both at once); -1 for a drawer that cannot be
  /// extended.
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

/// A counted share in a distribution's record; the record lives as long as a share or its open file does.
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
/// drawer, which an ORXSimTransfer creates and accesses; a distribution has at most one drawer. The file owns
/// the distribution; copies of the handle share its record.
///
/// Errors are ORXSimException: wrongState (30) for a handle on nothing, staleIdentifier (10) once the file
/// was closed or the distribution abandoned with its transaction.
class ORX_EXPORT ORXSimDistribution {
public:
  /// A handle on nothing, to be assigned to.
  ORXSimDistribution() noexcept;
  /// Raises staleIdentifier (10) for the null distribution and for a distribution that does not exist (any
  /// more).
  explicit ORXSimDistribution(ORXSimDistributionID const& id);

  /// The identifier, null for a handle on nothing. Raises nothing, like NumDimensions.
  ORXSimDistributionID ID() const noexcept;
  /// Number of dimensions, 0 for a handle on nothing.
  int NumDimensions() const noexcept;
  ORXSimRangeType RangeType() const;
  /// The type; -1 for a distribution without a type.
  ORXSimTypeID Type() const;
  /// The collection along a zero-based dimension; raises invalidArgument (20) when there is no such
  /// dimension.
  ORXSimCollectionID Collection(int dim) const;
  /// Replaces the elements of `out` by the description of the drawer; `out` is empty when there is no drawer
  /// yet. Raises damaged (42) when the file's drawer is not as it was written.
  void QueryDrawers(ORXSimArray<ORXSimPersistentDrawerDesc>& out) const;

private:
  friend class ORXSimTransfer;
  ORXSimParticipation m_participation;
};
