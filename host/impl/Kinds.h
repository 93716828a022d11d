#pragma once

#include "host/impl/Objects.h"
#include "mtx/ORXSrvDenseMatrix.h"
#include "mtx/ORXSrvMatrixContainer.h"
#include "mtx/ORXSrvSparseMatrix.h"
#include "sim/ORXSimDatabase.h"
#include "sim/ORXSimTransaction.h"
#include "solve/ORXSrvModes.h"
#include "solve/ORXSrvSparseFactor.h"

#include <memory>
#include <optional>

// The kinds of object, one for each type of handle.

namespace orx::host {

struct Database final : Object {
  ORXSimDatabase file;
  /// The first one, in which matrices are made; none in a file without any that was opened read-only.
  std::optional<ORXSimContextID> context;
  std::optional<ORXSimTransaction> transaction;
};

struct Registry final : Object {
  std::unique_ptr<ORXSrvMatrixContainer> own; ///< null for a registry of the host
  ORXSrvMatrixContainer* container = nullptr;
};

/// A block matrix: of its own, on a distribution of a database, or that of an identifier in a registry.
struct BlockMatrix final : Object {
  std::unique_ptr<ORXSrvDenseMatrix> own; ///< null for one of a registry
  std::weak_ptr<Registry> registry;
  int id = 0;
};

struct SparseMatrix final : Object {
  explicit SparseMatrix(ORXSrvSparseMatrix&& content) : matrix(std::move(content)) {}
  ORXSrvSparseMatrix matrix;
};

struct Factor final : Object {
  ORXSrvSparseFactor factor;
};

struct Modes final : Object {
  Modes(std::shared_ptr<SparseMatrix const> stiffness, std::shared_ptr<SparseMatrix const> mass)
      : k(std::move(stiffness)), m(std::move(mass)), modes(k->matrix, m->matrix) {}
  std::shared_ptr<SparseMatrix const> k, m; ///< which `modes` reads
  ORXSrvModes modes;
};

/// The matrix behind a handle. Raises wrongHandle when its registry was deleted, and the registry's error
/// when the matrix was removed.
ORXSrvDenseMatrix& Resolve(BlockMatrix& matrix);

} // namespace orx::host
