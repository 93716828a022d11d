#pragma once

#include "tests/mpi/MpiSupport.h"
#include "tests/support/Dense.h"

#include "mtx/ORXSrvUtilities.h"

#include <numeric>

enum class Form { Whole, Chunked, Symmetric, Sparse };

inline ORXSimCSetID Members(ORXSimContext const& context, int count, int firstLabel) {
  std::vector<int> labels(static_cast<std::size_t>(count));
  std::iota(labels.begin(), labels.end(), firstLabel);
  return ORXSimCollection(context.CreateCollection(0, ORXSimTypeID()))
      .CreateOrderedCSet(labels.data(), count);
}

inline void WriteSparse(ORXSimTransaction& transaction, ORXSimContextID const& id, Dense const& dense) {
  ORXSimContext const context(id);
  ORXSrvSparseMatrix matrix(dense.rows, dense.columns);
  for (int i = 0; i < dense.rows; ++i)
    for (int j = 0; j < dense.columns; ++j)
      matrix.AddData(static_cast<std::uint32_t>(i), static_cast<std::uint32_t>(j), dense(i, j));
  matrix.EndAssembly();
  ORXSimCSetID rows = Members(context, dense.rows, 100), columns = Members(context, dense.columns, 200);
  ORXSimDistributionID const distribution =
      ORXSrvUtilities::CreateSparseDistribution(transaction, ORXSrvPosition(id), -1, rows, columns);
  matrix.Export(rows, columns, distribution);
}

/// A database of one matrix without gaps, with row labels from 100 and column labels from 200.
inline void WriteMatrix(std::string const& path, Dense const& dense, Form form) {
  AllRanks().OnRoot([&] {
    ORXSimDatabase database;
    database.CreateFile(ORXUnicodeString(path.c_str()), ORXSimDatabase::replaceExisting, -1);
    ORXSimContextID const id = database.CreateContext({});
    ORXSimContext const context(id);
    ORXSimTransaction transaction(id);
    ORXSrvPosition const position(id);
    if (form == Form::Sparse) {
      WriteSparse(transaction, id, dense);
    } else {
      ORXSimCSetID const rows = Members(context, dense.rows, 100);
      int const chunk = form == Form::Chunked ? 7 : form == Form::Symmetric ? 16 : -1;
      ORXSimTransfer(
          ORXSimDistribution(
              form == Form::Symmetric
                  ? ORXSrvUtilities::CreateSymmetricDistribution(transaction, position, -1, rows, chunk)
                  : ORXSrvUtilities::Create2DDistribution(
                        transaction, position, -1, rows, Members(context, dense.columns, 200), chunk, chunk)))
          .SetWrite()
          .SetBuffer(0, dense.values.data(), static_cast<std::int64_t>(dense.values.size() * sizeof(double)))
          .ExecWrite();
    }
    transaction.Commit();
    database.Close();
  });
}
