#pragma once

#include "core/ORXUnicodeString.h"
#include "mtx/ORXSrvDenseMatrix.h"
#include "mtx/ORXSrvHermitianScrDenseMatrix.h"
#include "mtx/ORXSrvMatrixContainer.h"
#include "mtx/ORXSrvScratchDenseMatrix.h"
#include "mtx/ORXSrvUtilities.h"
#include "sim/ORXSimCSet.h"
#include "sim/ORXSimCollection.h"
#include "sim/ORXSimContext.h"
#include "sim/ORXSimDatabase.h"
#include "tests/mtx/MatrixSupport.h"
#include "tests/support/Dense.h"
#include "tests/support/TemporaryFolder.h"

#include <cstdint>
#include <memory>

constexpr char invalidGet[] = "203 ORXSrvDenseMatrix::GetValues invalid range values.";
constexpr char invalidSet[] = "204 ORXSrvDenseMatrix::SetValues invalid range values.";

/// A view or a matrix that is deleted with its scope.
using DensePtr = std::unique_ptr<ORXSrvDenseMatrix>;

inline DensePtr ViewOf(ORXSrvDenseMatrix const& parent, int firstRow, int lastRow, int firstColumn,
                       int lastColumn) {
  return DensePtr(parent.Submatrix(firstRow, lastRow, firstColumn, lastColumn));
}

/// All values, column-major.
inline Doubles All(ORXSrvDenseMatrix const& matrix) {
  Doubles values(matrix.NumberOfRows() * matrix.NumberOfColumns());
  matrix.GetAllValues(values.data());
  return values;
}

/// Writes packed values into a rectangle.
inline void Write(ORXSrvDenseMatrix& matrix, int firstRow, int lastRow, int firstColumn, int lastColumn,
                  Doubles values) {
  matrix.SetValues(firstRow, lastRow, firstColumn, lastColumn,
                   ORXSrvMatrix(lastRow - firstRow + 1, lastColumn - firstColumn + 1, values.data()));
}

/// Writes 100 * i + j everywhere.
inline void Number(ORXSrvDenseMatrix& matrix) {
  Doubles values;
  for (int j = 0; j < matrix.NumberOfColumns(); ++j)
    for (int i = 0; i < matrix.NumberOfRows(); ++i)
      values.push_back(100.0 * i + j);
  Write(matrix, 0, matrix.NumberOfRows() - 1, 0, matrix.NumberOfColumns() - 1, values);
}

inline Dense Contents(ORXSrvDenseMatrix const& matrix) {
  Dense values(matrix.NumberOfRows(), matrix.NumberOfColumns());
  values.values = All(matrix);
  return values;
}
inline void Set(ORXSrvDenseMatrix& matrix, Dense const& values) {
  Write(matrix, 0, values.rows - 1, 0, values.columns - 1, values.values);
}

inline std::vector<int> Labels(ORXSimCSetID const& id) {
  ORXSimCSet const set(id);
  std::vector<int> labels(set.Size());
  set.OrderedMembers(labels.data());
  return labels;
}

/// How a matrix is stored and seen.
struct DenseKind {
  enum class Handle {
    Own,
    View,
    ViewOfView,
    Scratch,
    Registered,
    Column,
    Grown,
    GrownColumn,
    ViewOfGrown,
    BelowDiagonal, ///< a view of a symmetric matrix, of which another triangle is the mirror image
    AboveDiagonal
  };
  char const* name;
  Handle handle;
  int rowChunk, columnChunk; ///< -1: stored whole
};

constexpr DenseKind denseKinds[] = {
    {"Whole", DenseKind::Handle::Own, -1, -1},
    {"ChunksOfOne", DenseKind::Handle::Own, 1, 1},
    {"OddChunks", DenseKind::Handle::Own, 4, 3},
    {"ChunksLongerThanTheMatrix", DenseKind::Handle::Own, 64, 64},
    {"Scratch", DenseKind::Handle::Scratch, 3, 2},
    {"Registered", DenseKind::Handle::Registered, 2, 3},
    {"View", DenseKind::Handle::View, 4, 3},
    {"ViewOfView", DenseKind::Handle::ViewOfView, 3, 2},
    {"ColumnWhole", DenseKind::Handle::Column, -1, -1},
    {"ColumnInChunks", DenseKind::Handle::Column, 4, -1},
    {"GrownInOneBlock", DenseKind::Handle::Grown, 64, 64},
    {"GrownFromAShortBlock", DenseKind::Handle::Grown, 8, 5},
    {"GrownFromAWhole", DenseKind::Handle::Grown, -1, -1},
    {"GrownColumn", DenseKind::Handle::GrownColumn, 8, -1},
    {"BelowTheDiagonal", DenseKind::Handle::BelowDiagonal, 3, 3},
    {"AboveTheDiagonal", DenseKind::Handle::AboveDiagonal, 4, 4},
};

/// Behind the kinds that did not grow.
inline DenseKind const* const denseKindsThatGrew =
    std::find_if(std::begin(denseKinds), std::end(denseKinds), [](DenseKind const& kind) {
      return kind.handle == DenseKind::Handle::Grown || kind.handle == DenseKind::Handle::GrownColumn;
    });

inline void PrintTo(DenseKind const& kind, std::ostream* out) { *out << kind.name; }

/// A database in which matrices are made.
class DenseDatabase {
public:
  DenseDatabase() {
    m_database.SetDurability(ORXSimDurability::Scratch);
    m_database.CreateFile(ORXUnicodeString("dense.sim"), 0, -1);
    m_context = m_database.CreateContext(ORXSimNamespaceID());
  }

  ORXSimContext Context() const { return ORXSimContext(m_context); }
  void Close() { m_database.Close(); }
  std::set<std::string> Files() const { return m_folder.Files(); }

  ORXSimCSetID NewSet(std::vector<int> const& labels) const {
    ORXSimCollection const members(Context().CreateCollection(0, ORXSimTypeID()));
    return members.CreateOrderedCSet(labels.data(), static_cast<int>(labels.size()));
  }
  ORXSimCSetID NewSet(int size) const {
    return ORXSimCollection(Context().CreateCollection(size, ORXSimTypeID())).BiggestCSetID();
  }
  /// Zeros with the labels 0, 1, ... in chunks.
  DensePtr New(int rows, int columns, int rowChunk, int columnChunk) const {
    return std::make_unique<ORXSrvDenseMatrix>(
        ORXSrvUtilities::Create2DDistribution(NewSet(rows), NewSet(columns), rowChunk, columnChunk));
  }
  DensePtr NewColumn(int rows, int chunk) const {
    return std::make_unique<ORXSrvDenseMatrix>(ORXSrvUtilities::Create1DDistribution(NewSet(rows), chunk));
  }
  /// The matrix after rows and columns were appended to it, in several steps.
  static DensePtr Grown(DensePtr matrix, int rows, int columns) {
    for (int const step : {1, 2, rows, columns}) {
      int const moreRows = std::min(step, rows - matrix->NumberOfRows());
      int const moreColumns = std::min(step, columns - matrix->NumberOfColumns());
      if (moreRows > 0) matrix->ExtendDim(1, moreRows, nullptr);
      if (moreColumns > 0) matrix->ExtendDim(0, moreColumns, nullptr);
    }
    return matrix;
  }
  /// A matrix of zeros of a kind; a column has one column, whatever `columns` is. Views lie inside a frame
  /// of `frame` rows and columns on each side; their parents are gone.
  DensePtr New(DenseKind const& kind, int rows, int columns) const {
    using Handle = DenseKind::Handle;
    auto const [name, handle, rowChunk, columnChunk] = kind;
    if (handle == Handle::Own) return New(rows, columns, rowChunk, columnChunk);
    if (handle == Handle::Scratch)
      return std::make_unique<ORXSrvScratchDenseMatrix>(rows, columns, rowChunk, columnChunk);
    if (handle == Handle::Registered) return NewInRegistry(rows, columns, rowChunk, columnChunk);
    if (handle == Handle::Column) return NewColumn(rows, rowChunk);
    if (handle == Handle::Grown)
      return Grown(New(rows - rows / 2, columns - columns / 2, rowChunk, columnChunk), rows, columns);
    if (handle == Handle::BelowDiagonal || handle == Handle::AboveDiagonal) {
      ORXSrvHermitianScrDenseMatrix const parent(rows + columns, rowChunk);
      auto const [row, column] = OriginOf(kind, rows, columns);
      return ViewOf(parent, row, row + rows - 1, column, column + columns - 1);
    }
    if (handle == Handle::GrownColumn) return Grown(NewColumn(rows - rows / 2, rowChunk), rows, 1);
    DenseKind const ofParent{name, handle == Handle::ViewOfGrown ? Handle::Grown : Handle::Own, rowChunk,
                             columnChunk};
    DensePtr const parent = New(ofParent, rows + 2 * frame, columns + 2 * frame);
    if (handle != Handle::ViewOfView)
      return ViewOf(*parent, frame, frame + rows - 1, frame, frame + columns - 1);
    DensePtr const view = ViewOf(*parent, 1, rows + 2, 1, columns + 2);
    return ViewOf(*view, frame - 1, frame + rows - 2, frame - 1, frame + columns - 2);
  }

  static constexpr int frame = 2;
  /// Row and column of the distribution where the matrix begins.
  static std::pair<int, int> OriginOf(DenseKind const& kind, int rows, int columns) {
    using Handle = DenseKind::Handle;
    if (kind.handle == Handle::BelowDiagonal) return {columns, 0};
    if (kind.handle == Handle::AboveDiagonal) return {0, rows};
    bool const isView = kind.handle == Handle::View || kind.handle == Handle::ViewOfView ||
                        kind.handle == Handle::ViewOfGrown;
    return isView ? std::pair{frame, frame} : std::pair{0, 0};
  }

private:
  /// As the registry makes them; one whose identifier is taken is the caller's.
  DensePtr NewInRegistry(int rows, int columns, int rowChunk, int columnChunk) const {
    constexpr int taken = 1;
    if (m_registry == nullptr) {
      m_registry = std::make_unique<ORXSrvMatrixContainer>();
      m_registry->Create(taken, 1, 1, 1, 1);
    }
    return DensePtr(&m_registry->Create(taken, rows, columns, rowChunk, columnChunk));
  }

  WorkingFolder m_folder;
  ORXSimDatabase m_database;
  ORXSimContextID m_context;
  mutable std::unique_ptr<ORXSrvMatrixContainer> m_registry; ///< made when it is asked for
};
