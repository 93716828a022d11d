#include "mtx/impl/ORXSrvSparseImExPorter.h"

#include "mtx/ORXSrvSparseMatrix.h"
#include "mtx/impl/ORXSrvMtxErrors.h"
#include "mtx/impl/TextTriplets.h"

namespace {
constexpr char sourceFile[] = "mtx/impl/ORXSrvSparseImExPorter.cpp";
}

void ORXSrvSparseImExPorter::Import(ORXSrvSparseMatrix& matrix, char const* path, int format) const {
  switch (format) {
  case 2:
    return ImportTextTriplets(matrix, path, "rb");
  case 3:
    return ImportTextTriplets(matrix, path, "r");
  default:
    ORXSrvMtxUnsupportedImpFmt().Throw(sourceFile, __LINE__);
  }
}

void ORXSrvSparseImExPorter::Export(ORXSrvSparseMatrix const& matrix, char const* path, int format) const {
  if (format != 3) ORXSrvMtxUnsupportedExpFmt().Throw(sourceFile, __LINE__);
  ExportTextTriplets(matrix, path);
}

void ORXSrvSparseImExPorter::ImportTextTriplets(ORXSrvSparseMatrix& matrix, char const* path,
                                                char const* mode) {
  TripletCollector collector;
  TextTripletShape const shape = ReadTextTriplets(path, mode, collector);
  matrix.ResetRows(collector.Finish(shape.rows, shape.columns), shape.rows, shape.columns);
}

void ORXSrvSparseImExPorter::ExportTextTriplets(ORXSrvSparseMatrix const& matrix, char const* path) {
  TextTripletWriter writer(path);
  bool const isSymmetricForm = matrix.IsSymmetricForm();
  auto const rows = static_cast<std::uint32_t>(matrix.m_rowPointers != nullptr ? matrix.m_arrayRows : 0);
  if (isSymmetricForm)
    for (std::uint32_t i = 0; i < rows; ++i)
      writer.Write(i, i, matrix.m_diagonal[i]);
  for (std::uint32_t i = 0; i < rows; ++i)
    for (std::int32_t k = matrix.m_rowPointers[i]; k < matrix.m_rowPointers[i + 1]; ++k) {
      writer.Write(i, matrix.m_columnIndices[k], matrix.m_values[k]);
      if (isSymmetricForm) writer.Write(matrix.m_columnIndices[k], i, matrix.m_values[k]);
    }
  writer.Close();
}
