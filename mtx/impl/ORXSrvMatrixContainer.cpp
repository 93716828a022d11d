#include "mtx/ORXSrvMatrixContainer.h"

#include "core/ORXUnicodeString.h"
#include "core/utl_FilePath.h"
#include "mtx/ORXSrvUtilities.h"
#include "sim/ORXSimCollection.h"
#include "sim/ORXSimContext.h"
#include "sim/ORXSimException.h"
#include "sim/ORXSimTransaction.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <numeric>
#include <string>
#include <vector>

namespace {

/// The file name of the container at an address; from the second choice on with a number.
atr_String FileName(void const* container, int choice) {
  std::array<char, 80> name{};
  if (choice == 0) {
    std::snprintf(name.data(), name.size(), "ORXSrvMatrixContainer%p.sim", container);
  } else {
    std::snprintf(name.data(), name.size(), "ORXSrvMatrixContainer%p-%d.sim", container, choice);
  }
  return atr_String(name.data());
}

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
    DeleteFile();
    throw;
  }
}

ORXSrvMatrixContainer::~ORXSrvMatrixContainer() {
  DeleteMatrices();
  DeleteFile();
}

void ORXSrvMatrixContainer::CreateFile() {
  // Nobody needs the file after this process: nothing waits for the disk, and one that a dead process left is
  // replaced. A living process may have a container at the same address.
  m_database.SetDurability(ORXSimDurability::Scratch);
  constexpr int choices = 1000;
  for (int choice = 0; choice < choices && !m_database.IsOpen(); ++choice) {
    m_fileName = FileName(this, choice);
    try {
      m_database.CreateFile(ORXUnicodeString(m_fileName), 0, -1);
    } catch (ORXSimException const& e) {
      if (e.Code() != ORXSimException::fileInUse || choice == choices - 1) throw;
    }
  }
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

void ORXSrvMatrixContainer::DeleteFile() noexcept {
  if (!m_database.IsOpen()) return; // another process may have a file of this name
  try {
    m_database.Close();
  } catch (ORXSimException const&) {
    // The file goes all the same; the database closes it when it is destroyed.
  }
  if (utl_FilePath(m_fileName, atr_String()).Exists()) std::remove(m_fileName.AsText());
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
  int rowLength = std::min(rows, rowChunk);
  int columnLength = std::min(columns, columnChunk);
  // An empty matrix is refused by the database, which takes no chunks of 0.
  if (rows > 0 && columns > 0) ORXSrvUtilities::LimitChunkSize2GB(rowLength, columnLength, rows, columns);
  ORXSimDistributionID const values =
      ORXSrvUtilities::Create2DDistribution(rowSet, columnSet, rowLength, columnLength);
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
