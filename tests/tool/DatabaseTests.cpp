#include "ToolSupport.h"

#include "tools/formats/DatabaseMatrix.h"

#include "mtx/ORXSrvDenseMatrix.h"
#include "mtx/ORXSrvUtilities.h"
#include "sim/ORXSimCSet.h"
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

/// A model as a solver module keeps it: springs of 2, -1 between unit masses of labels 30, 10, 20, and beside
/// them the same stiffness dense, in general and in symmetric form, and a rectangle.
class Model {
public:
  explicit Model(std::string const& path) {
    m_database.CreateFile(ORXUnicodeString(path.c_str()), 0, -1);
    m_id = m_database.CreateContext({});
  }

  void AddSparse(char const* type, ORXSrvSparseMatrix const& matrix, std::vector<int> const& labels = {}) {
    ORXSimTransaction transaction(m_id);
    ORXSimCSetID rows = Members(matrix.NumberOfRows(), labels);
    ORXSimCSetID columns = rows;
    ORXSimDistributionID const id = ORXSrvUtilities::CreateSparseDistribution(
        transaction, ORXSrvPosition(m_id), TypeOf(type), rows, columns);
    matrix.Export(rows, columns, id);
    transaction.Commit();
  }

  void AddDense(char const* type, int rows, int columns, std::vector<double> const& values, bool isSymmetric,
                int chunk = -1) {
    ORXSimTransaction transaction(m_id);
    ORXSimCSetID const set = Members(rows, {});
    ORXSrvPosition const position(m_id);
    ORXSimTransfer(ORXSimDistribution(isSymmetric ? ORXSrvUtilities::CreateSymmetricDistribution(
                                                        transaction, position, TypeOf(type), set, chunk)
                                                  : ORXSrvUtilities::Create2DDistribution(
                                                        transaction, position, TypeOf(type), set,
                                                        Members(columns, {}), chunk, chunk)))
        .SetWrite()
        .SetBuffer(0, values.data(), static_cast<std::int64_t>(values.size() * sizeof(double)))
        .ExecWrite();
    transaction.Commit();
  }

  void Close() { m_database.Close(); }

private:
  int TypeOf(char const* type) const { return *type == '\0' ? -1 : ORXSimContext(m_id).DefineType(type); }
  ORXSimCSetID Members(int count, std::vector<int> const& labels) const {
    ORXSimCollection const members(
        ORXSimContext(m_id).CreateCollection(labels.empty() ? count : 0, ORXSimTypeID()));
    return labels.empty() ? members.BiggestCSetID() : members.CreateOrderedCSet(labels.data(), count);
  }

  ORXSimDatabase m_database;
  ORXSimContextID m_id;
};

constexpr Rows springs{{2, -1, 0}, {-1, 2, -1}, {0, -1, 2}};
std::vector<double> const springValues{2, -1, 0, -1, 2, -1, 0, -1, 2};
char const* const springEntries = "3 x 3: 1,1=2 1,2=-1 2,1=-1 2,2=2 2,3=-1 3,2=-1 3,3=2";

std::string WriteModel(std::string const& path) {
  Model model(path);
  model.AddSparse("K", Symmetric(springs), {30, 10, 20});
  model.AddSparse("mass matrix", Symmetric({{1}, {0, 1}, {0, 0, 1}}), {30, 10, 20});
  model.AddSparse("K2", Sparse(springs));
  model.AddDense("D", 3, 3, springValues, false, 2);
  model.AddDense("D", 3, 3, springValues, true);
  model.AddDense("", 2, 3, {1, 0, -0.5, 0, 0, 7}, false);
  model.Close();
  return path;
}

TEST(DatabaseMatrix, IsReadByTypeOrNumberWhateverItsDrawer) {
  TemporaryFolder const folder;
  std::string const path = WriteModel(folder.Path("model.sim"));
  char const* const rectangle = "2 x 3: 1,1=1 1,2=-0.5 2,3=7";
  for (auto const& [name, expected] :
       std::initializer_list<std::pair<char const*, char const*>>{{":K", springEntries},
                                                                  {":0/0", springEntries},
                                                                  {":K2", springEntries},
                                                                  {":0/3", springEntries},
                                                                  {":0/4", springEntries},
                                                                  {":0/5", rectangle}})
    EXPECT_EQ(TextOf(orx::tool::LoadMatrix(path + name)), expected) << name;
  EXPECT_EQ(RunTool("cmp " + path + ":K " + path + ":0/4").exitCode, 0);
  EXPECT_CONTAINS(RunTool("info " + path + ":K").out, "exactly symmetric");
}

TEST(DatabaseMatrix, OfAnUnclearNameIsAnErrorThatListsThem) {
  TemporaryFolder const folder;
  std::string const path = WriteModel(folder.Path("model.sim"));
  std::string const numbers = folder.Path("numbers.sim");
  WriteDatabase(numbers);
  Model empty(folder.Path("empty.sim"));
  empty.Close();
  for (auto const& [name, expected] : std::initializer_list<std::pair<std::string, char const*>>{
           {path,
            "holds several matrices: 0/0 of type K (sparse symmetric, 3 x 3), 0/1 of type mass matrix ("},
           {path + ":D",
            "several matrices 'D': 0/3 of type D (dense, 3 x 3), 0/4 of type D (dense symmetric"},
           {path + ":k", "holds no matrix 'k' among 0/0 of type K"},
           {path + ":0/6", "such as '"},
           {path + ":", "holds several matrices"},
           {numbers, "0/0 of type mode shapes (dense, 10 x 7), 0/2 (sparse, 10 x 7); expected a type or"},
           {folder.Path("empty.sim"), "holds no matrix of doubles in two dimensions"},
           {folder.Path("none.sim:K"), "none.sim:K': No such file"}})
    EXPECT_CONTAINS(Ending([&] { orx::tool::LoadMatrix(name); }), expected);
}

TEST(DatabaseMatrix, AFileOfTheWholeNameComesFirst) {
  TemporaryFolder const folder;
  std::string const path = WriteModel(folder.Path("model.sim"));
  folder.Write("model.sim:K", "1 1 5\n");
  std::string const colons = WriteModel(folder.Path("a:b.sim"));
  EXPECT_EQ(TextOf(orx::tool::LoadMatrix(path + ":K")), "1 x 1: 1,1=5");
  EXPECT_EQ(TextOf(orx::tool::LoadMatrix(colons + ":K")), springEntries);
}

TEST(DatabaseMatrix, DamageIsExitCode1) {
  TemporaryFolder const folder;
  std::string const path = WriteModel(folder.Path("model.sim"));
  std::string const bytes = folder.Read("model.sim");
  for (std::string const& damaged : {bytes.substr(0, bytes.size() / 2), bytes.substr(0, 8)}) {
    RunResult const run = RunTool("info " + folder.Write("cut.sim", damaged) + ":K");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_CONTAINS(run.err, "cut.sim");
  }
}

/// The labels of the rows of the first block matrix of a database.
std::vector<int> LabelsIn(std::string const& path) {
  ORXSimDatabase database;
  orx::tool::OpenToRead(database, path);
  return orx::tool::RowLabels(orx::tool::FindMatrix(database, path, "0/0", ""));
}

TEST(DatabaseMatrix, ModesTakeBothFromOneFileAndShapesKeepTheirLabels) {
  TemporaryFolder const folder;
  std::string const path = WriteModel(folder.Path("model.sim"));
  std::string const shapes = folder.Path("shapes.sim");

  RunResult const both = RunTool("modes " + path + " --shapes " + shapes);
  RunResult const named = RunTool("modes " + path + ":0/2 " + path + ":0/1");

  EXPECT_CONTAINS(both.out, "# K: " + path +
                                ":K, order 3, 7 entries, both triangles, exactly symmetric\n# M: " + path +
                                ":mass matrix, order 3, 3 entries, diagonal\n");
  ASSERT_EQ(ReadModes(both.out).size(), 3U) << both.err;
  EXPECT_NEAR(static_cast<double>(ReadModes(both.out)[1].eigenvalue), 2.0, 1e-14);
  EXPECT_EQ(ReadModes(named.out).size(), 3U) << named.err;
  EXPECT_EQ(LabelsIn(shapes), (std::vector<int>{30, 10, 20}));

  std::string const loads = folder.Write("F.txt", "1\n0\n0\n");
  EXPECT_EQ(RunTool("solve " + path + ":K " + loads + " " + shapes).err, "");
  EXPECT_EQ(LabelsIn(shapes), (std::vector<int>{30, 10, 20}));
}

TEST(DatabaseMatrix, OfOneModelIsNeitherTakenTwiceNorOverwritten) {
  TemporaryFolder const folder;
  std::string const path = WriteModel(folder.Path("model.sim")), before = folder.Read("model.sim");
  Model one(folder.Path("one.sim"));
  one.AddSparse("", Symmetric(springs));
  one.Close();
  struct Case {
    std::string arguments, message;
    int code;
  };
  for (Case const& test :
       {Case{"modes " + folder.Path("one.sim"), "the only matrix that can be meant by K and by M", 1},
        {"modes " + folder.Write("K.txt", "1 1 1\n"), "M is required", 2},
        {"modes " + path + " --shapes " + path, "names the input file", 2},
        {"modes " + path + ":K " + path + " --shapes " + path, "names the input file", 2},
        {"solve " + path + " " + folder.Write("F.txt", "1\n0\n0\n") + " " + path, "names the input file", 2},
        {"convert --to mtx " + path + ":K " + path, "OUT names the database", 2},
        {"convert " + path + ":K " + folder.Path("out") + " --to database", "are read, not written", 2}}) {
    RunResult const run = RunTool(test.arguments);
    EXPECT_EQ(run.exitCode, test.code) << test.arguments;
    EXPECT_CONTAINS(run.err, test.message);
  }
  EXPECT_EQ(folder.Read("model.sim"), before);
}

} // namespace
