#include "host/impl/Call.h"

#include "host/orx_linear_algebra.h"

#include <algorithm>
#include <cstdint>

namespace orx::host {
namespace {

std::shared_ptr<SparseMatrix const> Shared(SparseMatrix& matrix) {
  return std::static_pointer_cast<SparseMatrix const>(matrix.shared_from_this());
}

std::shared_ptr<Modes> ModesCreate(SparseMatrix& k, SparseMatrix& m) {
  return std::make_shared<Modes>(Shared(k), Shared(m));
}

void ModesSetMemory(Modes& modes, std::int64_t bytes) { modes.modes.SetMemory(MemoryOf(bytes)); }

void ModesSetFolder(Modes& modes, char const* path) { modes.modes.SetFolder(path); }

void ModesSetCertified(Modes& modes, int certified) {
  modes.modes.SetCertified(Flag("certified", certified));
}

void ModesFindLowest(Modes& modes, int count) { modes.modes.FindLowest(count); }

void ModesFindNear(Modes& modes, double frequency, int count) { modes.modes.FindNear(frequency, count); }

void ModesFindBetween(Modes& modes, double from, double to) { modes.modes.FindBetween(from, to); }

int Found(Modes const& modes) { return static_cast<int>(modes.modes.Modes().size()); }

void ModesCount(Modes& modes, int& count, int& certified) {
  count = Found(modes);
  certified = modes.modes.IsCertified() ? 1 : 0;
}

void ModesGet(Modes& modes, int number, double& lambda, double& frequency, double& error, double& residual,
              int& rigid) {
  int const index = PositionOf("number", number, Found(modes));
  ORXSrvMode const& mode = modes.modes.Modes()[static_cast<std::size_t>(index)];
  lambda = mode.eigenvalue;
  frequency = mode.frequency;
  error = mode.error;
  residual = mode.residual;
  rigid = mode.isRigid ? 1 : 0;
}

void ModesShape(Modes& modes, int number, double* shape) {
  int const index = PositionOf("number", number, Found(modes));
  std::copy_n(modes.modes.Shape(index), modes.modes.NumberOfUnknowns(), shape);
}

void ModesShapes(Modes& modes, ORXSrvDenseMatrix& shapes) { modes.modes.GetShapes(shapes); }

} // namespace
} // namespace orx::host

#include "host/ModeAnalyses.inc"
