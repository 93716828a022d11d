#include "ToolSupport.h"

#include "mtx/ORXSrvUtilities.h"
#include "sim/ORXSimCollection.h"
#include "sim/ORXSimContext.h"
#include "sim/ORXSimDatabase.h"
#include "sim/ORXSimTransaction.h"
#include "sim/ORXSimTransfer.h"

namespace {

void WriteDatabase(std::string const& path) {
  ORXSimDatabase database;
  database.CreateFile(ORXUnicodeString(path.c_str()), 0, -1);
  ORXSimContextID const id = database.CreateContext({});
  ORXSimContext const context(id);
  ORXSimTransaction transaction(id);
  ORXSimCSetID rows = ORXSimCollection(context.CreateCollection(10, ORXSimTypeID())).BiggestCSetID();
  ORXSimCSetID columns = ORXSimCollection(context.CreateCollection(7, ORXSimTypeID())).BiggestCSetID();
  int const type = context.DefineType("mode shapes");
  ORXSrvUtilities::Create2DDistribution(transaction, ORXSrvPosition(id), type, rows, columns, 4, 3);
  int const numbers[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
  ORXSrvUtilities::Write1DIntDistribution(rows, numbers, 10);
  ORXSimDistribution const sparse(ORXSrvUtilities::CreateSparseDistribution(rows, columns));
  double const values[] = {1.5, 2.5};
  int const indices[] = {0, 6};
  int const starts[] = {0, 1, 2, 2, 2, 2, 2, 2, 2, 2, 2};
  ORXSimTransfer(sparse)
      .SetMakeNewDrawer()
      .SetWrite()
      .SetSparseNNonzero(2)
      .SetSerialization(ORXSimSerializationType().SetSparse())
      .SetBuffer(0, values, sizeof values)
      .SetBuffer(1, indices, sizeof indices)
      .SetBuffer(2, starts, sizeof starts)
      .ExecWrite();
  context.CreateDistribution(ORXSimGrid({rows.Collection()}), ORXSimRangeType(ORXSimTypeKey::Double), {});
  transaction.Commit();
  database.CreateContext({});
  database.Close();
}

TEST(Database, ListsWhatIsInside) {
  TemporaryFolder const folder;
  std::string const path = folder.Path("a.sim");
  WriteDatabase(path);

  RunResult const run = RunTool("db '" + path + "'");

  EXPECT_EQ(run.exitCode, 0);
  EXPECT_CONTAINS(run.out,
                  "context 0             2 collections, 4 distributions\n"
                  "  distribution 0      dense doubles, 10 rows x 7 columns, chunks of 4 x 3, 560 bytes, "
                  "type mode shapes\n"
                  "  distribution 1      dense integers, 10, stored whole, 40 bytes\n"
                  "  distribution 2      sparse general, 10 rows x 7 columns, 2 entries, 68 bytes\n"
                  "  distribution 3      1 dimension, no values\n"
                  "context 1             0 collections, 0 distributions\n");
}

TEST(Database, RefusesWhatIsNoDatabase) {
  TemporaryFolder const folder;
  std::string const text =
      folder.Write("text.sim", "not a database, but a text that is long enough to be looked at");

  RunResult const missing = RunTool("db '" + folder.Path("missing.sim") + "'");
  RunResult const foreign = RunTool("db '" + text + "'");

  EXPECT_EQ(missing.exitCode, 1);
  EXPECT_CONTAINS(missing.err, "missing.sim");
  EXPECT_EQ(foreign.exitCode, 1);
  EXPECT_CONTAINS(foreign.err, "text.sim");
}

} // namespace
