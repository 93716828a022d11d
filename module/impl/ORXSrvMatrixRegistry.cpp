#include "module/ORXSrvMatrixRegistry.h"

#include "module/impl/LastError.h"
#include "mtx/ORXSrvMatrix.h"
#include "mtx/ORXSrvMatrixContainer.h"

namespace {

ORXSrvDenseMatrix& MatrixOf(void* container, int const* id) {
  return static_cast<ORXSrvMatrixContainer*>(container)->Get(*id);
}

void ReadValues(ORXSrvDenseMatrix const& matrix, double* values) {
  int const rows = matrix.NumberOfRows();
  int const columns = matrix.NumberOfColumns();
  ORXSrvMatrix target(rows, columns, values, false, false);
  matrix.GetValues(0, rows - 1, 0, columns - 1, target);
}

} // namespace

void* ORXSRVMATRIXCONTAINERCREATE(void) {
  return orx::Reporting([] { return static_cast<void*>(new ORXSrvMatrixContainer); });
}

int ORXSRVMATRIXCONTAINERNUMROWS(void* container, int const* id) {
  return orx::Reporting([&] { return MatrixOf(container, id).NumberOfRows(); });
}

int ORXSRVMATRIXCONTAINERNUMCOLUMNS(void* container, int const* id) {
  return orx::Reporting([&] { return MatrixOf(container, id).NumberOfColumns(); });
}

void ORXSRVMATRIXCONTAINERGETVALUES(void* container, int const* id, double* values) {
  orx::Reporting([&] { ReadValues(MatrixOf(container, id), values); });
}

void ORXSRVMATRIXCONTAINERDELETE(void* container) { delete static_cast<ORXSrvMatrixContainer*>(container); }
