#include "solve/ORXSrvModes.h"

#include "mtx/ORXSrvDenseMatrix.h"
#include "mtx/ORXSrvMatrix.h"
#include "mtx/ORXSrvSparseMatrix.h"
#include "solve/impl/MatrixPencil.h"
#include "solve/search/ModalAnalysis.h"
#include "solve/search/SolveErrors.h"

#include <algorithm>
#include <string>

using namespace orx;

struct ORXSrvModes::State {
  MatrixPencil pencil;
  std::int64_t memory = 0; ///< 0: the default
  std::string folder;
  bool isWanted = true; ///< certification
  ModalAnalysis analysis;

  State(ORXSrvSparseMatrix const& k, ORXSrvSparseMatrix const& m) : pencil(k, m), analysis(pencil) {}

  ModalAnalysis& Begin() {
    EngineLimits const limits{memory > 0 ? memory : ORXSrvDenseMatrix::WorkMemory(), folder};
    analysis.Begin(limits.bytes, isWanted);
    pencil.BeginAnalysis(limits);
    return analysis;
  }

  /// Length of a shape; the matrices may have grown since.
  int Unknowns() const noexcept {
    return analysis.Found().empty() ? 0 : static_cast<int>(analysis.Found().front().shape.size());
  }

  template<class Matrix>
  void RequireShape(Matrix const& shapes, bool isFull) const {
    auto const count = static_cast<int>(analysis.Found().size());
    if (!isFull || shapes.NumberOfRows() != Unknowns() || shapes.NumberOfColumns() != count)
      RaiseSolveError(ORXSrvSolveError::illegalInput,
                      "ORXSrvModes: the matrix for shapes is " +
                          ShapeText(shapes.NumberOfRows(), shapes.NumberOfColumns()) +
                          "; expected a full one of " + ShapeText(Unknowns(), count) + ".");
  }
};

ORXSrvModes::ORXSrvModes(ORXSrvSparseMatrix const& k, ORXSrvSparseMatrix const& m)
    : m_state(std::make_unique<State>(k, m)) {}

ORXSrvModes::~ORXSrvModes() = default;

// Settings

void ORXSrvModes::SetMemory(std::int64_t bytes) noexcept { m_state->memory = bytes; }

void ORXSrvModes::SetFolder(char const* path) { m_state->folder = path; }

void ORXSrvModes::SetCertified(bool certified) noexcept { m_state->isWanted = certified; }

// Analyses

void ORXSrvModes::FindLowest(int count) {
  RequireCount(count);
  m_state->Begin().FindLowest(count);
}

void ORXSrvModes::FindNear(double frequency, int count) {
  RequireCount(count);
  RequireFrequency(frequency);
  m_state->Begin().FindNear(frequency, count);
}

void ORXSrvModes::FindBetween(double from, double to) {
  RequireInterval(from, to);
  m_state->Begin().FindBetween(from, to);
}

// Results

std::vector<ORXSrvMode> const& ORXSrvModes::Modes() const noexcept { return m_state->analysis.Modes(); }

bool ORXSrvModes::IsCertified() const noexcept { return m_state->analysis.IsCertified(); }

std::vector<ORXSrvModeCount> const& ORXSrvModes::Counts() const noexcept {
  return m_state->analysis.Counts();
}

std::vector<double> const& ORXSrvModes::Shifts() const noexcept { return m_state->analysis.Shifts(); }

int ORXSrvModes::NumberOfUnknowns() const noexcept { return m_state->Unknowns(); }

double const* ORXSrvModes::Shape(int index) const {
  if (index < 0 || static_cast<std::size_t>(index) >= m_state->analysis.Found().size())
    RaiseSolveError(ORXSrvSolveError::illegalInput,
                    "ORXSrvModes: shape " + std::to_string(index) + " asked for; there are " +
                        std::to_string(m_state->analysis.Found().size()) + ".");
  return m_state->analysis.Found()[static_cast<std::size_t>(index)].shape.data();
}

void ORXSrvModes::GetShapes(ORXSrvMatrix& shapes) const {
  m_state->RequireShape(shapes, !shapes.IsDiagonal());
  for (int mode = 0; mode < shapes.NumberOfColumns(); ++mode)
    std::copy_n(Shape(mode), shapes.NumberOfRows(),
                shapes.Values() + std::int64_t{mode} * shapes.NumberOfRows());
}

void ORXSrvModes::GetShapes(ORXSrvDenseMatrix& shapes) const {
  m_state->RequireShape(shapes, true);
  int const width = std::max(1, shapes.MaxNumberOfColumnsInBlock());
  for (int first = 0; first < shapes.NumberOfColumns(); first += width) {
    ORXSrvMatrix columns(shapes.NumberOfRows(), std::min(width, shapes.NumberOfColumns() - first));
    for (int k = 0; k < columns.NumberOfColumns(); ++k)
      std::copy_n(Shape(first + k), columns.NumberOfRows(),
                  columns.Values() + std::int64_t{k} * columns.NumberOfRows());
    shapes.SetColumns(first, first + columns.NumberOfColumns() - 1, columns);
  }
}
