#include "DenseSupport.h"
#include "SparseSupport.h"
#include "sim/ORXSimTransaction.h"
#include "sim/ORXSimTransfer.h"

namespace {

/// A database with a sparse distribution of 3 rows and 4 columns and a square one of order 3.
class DatabaseExchange : public testing::Test {
protected:
  DatabaseExchange() : m_context(CreateContext()), m_transaction(m_context.ID()) {
    m_rows = Everything(3);
    m_columns = Everything(4);
    m_general = ORXSrvUtilities::CreateSparseDistribution(m_rows, m_columns);
    m_rowsOfSquare = m_columnsOfSquare = Everything(3);
    m_square = ORXSrvUtilities::CreateSparseDistribution(m_rowsOfSquare, m_columnsOfSquare);
  }

  ORXSimCSetID Everything(int members) {
    return ORXSimCollection(m_context.CreateCollection(members, ORXSimTypeID(-1))).BiggestCSetID();
  }

  /// Writes of a new drawer of 3 rows, whose other buffers the caller sets.
  ORXSimTransfer NewSparseDrawer(int entries, ORXSimSerializationType const& form, int const (&starts)[4]) {
    ORXSimTransfer transfer{ORXSimDistribution(m_general)};
    transfer.SetMakeNewDrawer().SetWrite().SetSparseNNonzero(entries).SetSerialization(form);
    return transfer.SetBuffer(2, starts, sizeof starts);
  }

  void Reopen() {
    m_transaction.Commit();
    m_database.Close();
    m_database.OpenFile(ORXUnicodeString("exchange.sim"), true);
    auto const distributions = ORXSimContext(m_database.Contexts()[0]).Distributions();
    m_general = distributions[0];
    m_square = distributions[1];
  }

private:
  ORXSimContextID CreateContext() {
    m_database.CreateFile(ORXUnicodeString("exchange.sim"), 0, -1);
    return m_database.CreateContext({});
  }

  WorkingFolder m_folder;

protected:
  ORXSimDatabase m_database;
  ORXSimContext m_context;
  ORXSimTransaction m_transaction;
  ORXSimCSetID m_rows, m_columns, m_rowsOfSquare, m_columnsOfSquare;
  ORXSimDistributionID m_general, m_square;
};

TEST_F(DatabaseExchange, GeneralFormComesBackWithItsSets) {
  auto const matrix = NewAssembled(3, 4, {{2, 3, 5.0}, {0, 1, -1.0}, {0, 0, 0.0}});
  matrix->Export(m_rows, m_columns, m_general);
  Reopen();

  Doubles const diagonal{1, 2};
  auto const read = Access::Adopt({0, 1, 1}, {1}, {7}, &diagonal, 3, 2); // a symmetric form before
  read->Import(m_general);

  EXPECT_EQ(EntriesOf(*read), EntriesOf(*matrix));
  EXPECT_EQ(SizeOf(*read), (std::pair{3, 4}));
  EXPECT_EQ(Access::SymmetryState(*read), 0);
  EXPECT_EQ(ORXSimCSet(read->RowCSetID()).Size(), 3);
  EXPECT_EQ(ORXSimCSet(read->ColumnCSetID()).Size(), 4);
  read->AddData(0, 2, 9.0);
  read->EndAssembly(); // an imported matrix is assembled: no effect
  EXPECT_EQ(read->NumberOfNonzeros(), 3);
}

TEST_F(DatabaseExchange, SymmetricFormComesBackAsOne) {
  std::vector<double> const diagonal{4, 4, 5};
  auto const matrix = Access::Adopt({0, 1, 2, 2}, {1, 2}, {-1, -2}, &diagonal, 5, 3);
  matrix->Export(m_rowsOfSquare, m_columnsOfSquare, m_square);
  Reopen();

  ORXSrvSparseMatrix read(0, 0);
  read.Import(m_square);

  EXPECT_EQ(EntriesOf(read), EntriesOf(*matrix));
  EXPECT_EQ(Access::SymmetryState(read), 1);
  EXPECT_EQ(read.NumberOfNonzeros(), 2); // stored entries: the database does not count the diagonal
}

TEST_F(DatabaseExchange, RowsOfAForeignDrawerAreSortedAndSummed) {
  int const starts[] = {0, 3, 3, 5};
  int const columns[] = {3, 0, 3, 1, 2}; // column 3 twice
  double const values[] = {1, 2, 4, 8, 16};
  NewSparseDrawer(5, ORXSimSerializationType().SetSparse(), starts)
      .SetBuffer(0, values, sizeof values)
      .SetBuffer(1, columns, sizeof columns)
      .ExecWrite();
  ORXSrvSparseMatrix read(0, 0);
  read.Import(m_general);
  EXPECT_EQ(EntriesOf(read), (Entries{{0, 0, 2}, {0, 3, 5}, {2, 1, 8}, {2, 2, 16}}));
  EXPECT_EQ(read.NumberOfNonzeros(), 4);
}

TEST_F(DatabaseExchange, OnlyAWholeMatrixIsWritten) {
  ORXSrvSparseMatrix matrix(3, 4);
  EXPECT_RAISED(IllegalInput("Export, a matrix assembled with all its rows expected"),
                matrix.Export(m_rows, m_columns, m_general));
  matrix.EndAssembly();
  matrix.AddData(0, 0, 1.0);
  EXPECT_RAISED(IllegalInput("Export, a matrix without entries added since its assembly expected"),
                matrix.Export(m_rows, m_columns, m_general));
}

TEST_F(DatabaseExchange, AMatrixWithoutEntriesIsOneToo) {
  NewAssembled(3, 4, {})->Export(m_rows, m_columns, m_general);
  Reopen();
  ORXSrvSparseMatrix read(0, 0);
  read.Import(m_general);
  EXPECT_TRUE(read.IsNull());
  EXPECT_EQ(read.NumberOfRows(), 3);
}

TEST_F(DatabaseExchange, MatricesThatDoNotFitTheSetsAreRefused) {
  for (std::uint32_t const rows : {2, 3, 4}) {
    auto const matrix = NewAssembled(0, 0, {{rows - 1, rows == 3 ? 4U : 3U, 1.0}}); // 2 x 4, 3 x 5, 4 x 4
    EXPECT_NE(CodeOf([&] { matrix->Export(m_rows, m_columns, m_general); }), 0) << rows;
  }
}

TEST_F(DatabaseExchange, ImportsThatFailLeaveTheMatrix) {
  ORXSrvSparseMatrix matrix(0, 0);
  Assemble(matrix, {{0, 2, 4.0}});
  ORXSimDistributionID const dense = ORXSrvUtilities::Create2DDistribution(m_rows, m_columns, -1, -1);
  EXPECT_CODE(viewDoesNotFit, matrix.Import(dense));
  EXPECT_CODE(viewDoesNotFit, matrix.Import(m_general)); // no drawer
  EXPECT_CODE(staleIdentifier, matrix.Import(ORXSimDistributionID()));

  int const starts[4] = {};
  double const diagonal[3] = {};
  NewSparseDrawer(0, ORXSimSerializationType().SetSparseSym(), starts) // symmetric, and yet 3 x 4
      .SetBuffer(3, diagonal, sizeof diagonal)
      .ExecWrite();
  EXPECT_EQ(
      Raised([&] { matrix.Import(m_general); }),
      IllegalInput("Import, a symmetric matrix with as many columns as rows expected, found 3 rows and 4 "
                   "columns"));
  EXPECT_EQ(EntriesOf(matrix), (Entries{{0, 2, 4.0}}));
  EXPECT_TRUE(matrix.RowCSetID().IsNull());
}

} // namespace
