#include "tools/mpi/LocalRows.h"

#include <algorithm>
#include <exception>

namespace orx::mpi {
namespace {

/// sums += rows [from, to) of a block times x, whose elements are groups of components.
[[gnu::target_clones("avx2", "default")]] void AddProducts(PetscInt from, PetscInt to,
                                                           PetscInt const* columns, PetscScalar const* values,
                                                           VectorGroup const* x, VectorGroup& sums) {
  for (PetscInt k = from; k < to; ++k) {
    VectorGroup const& component = x[columns[k]];
    for (std::size_t v = 0; v < measuredTogether; ++v)
      sums[v] += values[k] * component[v];
  }
}

} // namespace

LocalRows::Block::Block(Mat sequential) : matrix(sequential) {
  PetscBool isDone = PETSC_FALSE;
  Check(MatGetRowIJ(matrix, 0, PETSC_FALSE, PETSC_FALSE, &rows, &pointers, &columns, &isDone));
  Check(MatSeqAIJGetArrayRead(matrix, &values));
}

LocalRows::Block::~Block() {
  PetscBool isDone = PETSC_FALSE;
  MatSeqAIJRestoreArrayRead(matrix, &values);
  MatRestoreRowIJ(matrix, 0, PETSC_FALSE, PETSC_FALSE, &rows, &pointers, &columns, &isDone);
}

LocalRows::Parts::Parts(Mat matrix) { Check(MatMPIAIJGetSeqAIJ(matrix, &inside, &outside, &others)); }

LocalRows::LocalRows(Mat matrix) : LocalRows(matrix, Parts(matrix)) {}

LocalRows::LocalRows(Mat matrix, Parts const& parts) : m_inside(parts.inside), m_outside(parts.outside) {
  PetscInt end = 0, others = 0;
  Check(MatGetOwnershipRange(matrix, &m_first, &end));
  Check(MatGetSize(parts.outside, nullptr, &others));
  m_others.assign(parts.others, parts.others + others);
  Check(MatGetLayouts(matrix, nullptr, &m_layout));
  Check(PetscSFCreate(PetscObjectComm(reinterpret_cast<PetscObject>(matrix)), &m_exchange));
  Check(PetscSFSetGraphLayout(m_exchange, m_layout, others, nullptr, PETSC_COPY_VALUES, m_others.data()));
  MPI_Type_contiguous(measuredTogether, MPI_DOUBLE, &m_group);
  MPI_Type_commit(&m_group);
}

LocalRows::~LocalRows() {
  MPI_Type_free(&m_group);
  if (std::uncaught_exceptions() == 0) PetscSFDestroy(&m_exchange);
}

std::vector<VectorGroup> LocalRows::Gather(double const* x, int count) const {
  auto const own = static_cast<std::size_t>(Count());
  std::vector<VectorGroup> groups(own + m_others.size(), VectorGroup{});
  for (std::size_t v = 0; v < static_cast<std::size_t>(count); ++v)
    for (std::size_t i = 0; i < own; ++i)
      groups[i][v] = x[v * own + i];
  VectorGroup* const others = groups.data() + own;
  Check(PetscSFBcastBegin(m_exchange, m_group, groups.data(), others, MPI_REPLACE));
  Check(PetscSFBcastEnd(m_exchange, m_group, groups.data(), others, MPI_REPLACE));
  return groups;
}

std::vector<double> LocalRows::Gather(double const* x) const {
  std::vector<double> components(x, x + Count());
  components.resize(components.size() + m_others.size());
  double* const others = components.data() + Count();
  Check(PetscSFBcastBegin(m_exchange, MPI_DOUBLE, components.data(), others, MPI_REPLACE));
  Check(PetscSFBcastEnd(m_exchange, MPI_DOUBLE, components.data(), others, MPI_REPLACE));
  return components;
}

void LocalRows::Multiply(double const* x, int count, double* y) const {
  constexpr int most = static_cast<int>(measuredTogether);
  for (; count > 1; count -= most, x += std::ptrdiff_t{most} * Count(), y += std::ptrdiff_t{most} * Count())
    MultiplyGroup(x, std::min(count, most), y);
  if (count == 1) MultiplyOne(x, y);
}

void LocalRows::MultiplyOne(double const* x, double* y) const {
  std::vector<double> const components = Gather(x);
  std::fill_n(y, Count(), 0.0);
  ForEachEntry([&](int row, int column, double value) {
    y[row] += value * components[static_cast<std::size_t>(column)];
  });
}

void LocalRows::MultiplyGroup(double const* x, int count, double* y) const {
  std::vector<VectorGroup> const groups = Gather(x, count);
  auto const own = static_cast<std::size_t>(Count());
  for (std::size_t i = 0; i < own; ++i) {
    VectorGroup sums{};
    AddProducts(m_inside.pointers[i], m_inside.pointers[i + 1], m_inside.columns, m_inside.values,
                groups.data(), sums);
    AddProducts(m_outside.pointers[i], m_outside.pointers[i + 1], m_outside.columns, m_outside.values,
                groups.data() + own, sums);
    for (std::size_t v = 0; v < static_cast<std::size_t>(count); ++v)
      y[v * own + i] = sums[v];
  }
}

} // namespace orx::mpi
