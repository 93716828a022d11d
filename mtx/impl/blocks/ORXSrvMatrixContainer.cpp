#include "mtx/ORXSrvMatrixContainer.h"

#include "core/ORXUnicodeString.h"
#include "mtx/ORXSrvUtilities.h"
#include "mtx/impl/blocks/ORXSrvSimFileHandleNames.h"
#include "mtx/impl/blocks/ORXSrvUtilitiesChunks.h"
#include "sim/ORXSimCollection.h"
#include "sim/ORXSimContext.h"
#include "sim/ORXSimException.h"
#include "sim/ORXSimTransaction.h"

#include <algorithm>
#include <numeric>
#include <string>
#include <vector>

using namespace orx;

namespace {

ORXSimCSetID MemberSet(ORXSimCollectionID const& collection, int const* labels, int count) {
  if (labels != nullptr) return ORXSimCollection(collection).CreateOrderedCSet(labels, count);
  std::vector<int> numbers(static_cast<std::size_t>(std::max(count, 0)));
  std::iota(numbers.begin(), numbers.end(), 0);
  return ORXSimCollection(collection).CreateOrderedCSet(numbers.data(), count);
}

} // namespace

ORXSrvMatrixContainer::ORXSrvMatrixContainer() : m_matrices(nullptr) {
  try {
    CreateFile();
  } catch (...) {
    m_database.Discard();
    throw;
  }
}

ORXSrvMatrixContainer::~ORXSrvMatrixContainer() {
  DeleteMatrices();
  m_database.Discard();
}

void ORXSrvMatrixContainer::CreateFile() {
  // Nobody needs the file after this process: writes do not wait for the disk.
  m_database.SetDurability(ORXSimDurability::Scratch);
  CreateUnderFreeName("ORXSrvMatrixContainer", this, [this](atr_String const& name) {
    m_database.CreateFile(ORXUnicodeString(name), 0, -1);
  });
  m_context = m_database.CreateContext(ORXSimNamespaceID(-1, -1));
  ORXSimTransaction transaction(m_context);
  m_rowCollection = ORXSimContext(m_context).CreateCollection(0, ORXSimTypeID(-1));
  m_columnCollection = ORXSimContext(m_context).CreateCollection(0, ORXSimTypeID(-1));
  transaction.Commit();
}

void ORXSrvMatrixContainer::DeleteMatrices() noexcept {
  cow_BtreeIterator<int, ORXSrvDenseMatrix*> each(m_matrices);
  for (auto const* node = each.First(); node != nullptr; node = each.Next())
    delete node->ConstGet();
}

ORXSrvDenseMatrix& ORXSrvMatrixContainer::Create(int id, int rows, int columns, int rowChunk,
                                                 int columnChunk) {
  return CreateMatrix(id, rows, columns, nullptr, nullptr, rowChunk, columnChunk);
}

ORXSrvDenseMatrix& ORXSrvMatrixContainer::Create(int id, int rows, int columns, int const* rowLabels,
                                                 int const* columnLabels, int rowChunk, int columnChunk) {
  return CreateMatrix(id, rows, columns, rowLabels, columnLabels, rowChunk, columnChunk);
}

ORXSrvDenseMatrix& ORXSrvMatrixContainer::CreateMatrix(int id, int rows, int columns, int const* rowLabels,
                                                       int const* columnLabels, int rowChunk,
                                                       int columnChunk) {
  ORXSimTransaction transaction(m_context);
  ORXSimCSetID const rowSet = MemberSet(m_rowCollection, rowLabels, rows);
  ORXSimCSetID const columnSet = MemberSet(m_columnCollection, columnLabels, columns);
  LimitChunks(rowChunk, columnChunk, rows, columns);
  ORXSimDistributionID const values =
      ORXSrvUtilities::Create2DDistribution(rowSet, columnSet, rowChunk, columnChunk);
  transaction.Commit();
  auto matrix = std::make_unique<ORXSrvDenseMatrix>(values);
  m_matrices.InsertUnlessMember(id, matrix.get());
  return *matrix.release();
}

ORXSrvDenseMatrix& ORXSrvMatrixContainer::Get(int id) {
  ORXSrvDenseMatrix* const matrix = m_matrices.ConstGet(id);
  if (matrix == nullptr) {
    ORXSimException(ORXSimException::invalidArgument,
                    "The matrix container has no matrix " + std::to_string(id) + ".")
        .Throw(__FILE__, __LINE__);
  }
  return *matrix;
}

bool ORXSrvMatrixContainer::IsMember(int id) const { return m_matrices.ConstFind(id) != nullptr; }

void ORXSrvMatrixContainer::Remove(int id) {
  auto* const node = m_matrices.Find(id);
  if (node == nullptr) return;
  delete node->Get();
  node->Get() = nullptr;
}

int ORXSrvMatrixContainer::Size() const { return m_matrices.Count(); }
