#include "DatabaseSupport.h"

#include <cerrno>
#include <cmath>
#include <numeric>

// Files that we write are read by h5dump and h5py, and the reverse.

namespace {

constexpr char python[] = "/usr/bin/python3";

bool Has(std::string const& command) { return std::system((command + " >/dev/null 2>&1").c_str()) == 0; }

std::string OutputOf(std::string const& command, std::string const& work) {
  EXPECT_EQ(std::system((command + " >'" + work + "' 2>&1").c_str()), 0) << command << "\n"
                                                                         << ReadWhole(work);
  return ReadWhole(work);
}

class Interop : public testing::Test {
protected:
  std::string Path() const { return m_folder.Path("a.sim"); }
  /// What a program for h5py prints; F is the open file.
  std::string Python(std::string const& program, char const* mode = "r") const {
    WriteWhole(m_folder.Path("p.py"),
               "import h5py, numpy\nF = h5py.File('" + Path() + "', '" + mode + "')\n" + program);
    return OutputOf(std::string(python) + " '" + m_folder.Path("p.py") + "'", m_folder.Path("out"));
  }
  void WriteSample() const {
    ORXSimDatabase database;
    Create(database, Path());
    ORXSimContext const context(database.CreateContext({}));
    ORXSimDistributionID const plane = CreateField(context, {5, 7});
    CreateDrawer(plane, {2, 3});
    std::vector<double> cells(35);
    for (std::size_t k = 0; k < cells.size(); ++k)
      cells[k] = std::sqrt(static_cast<double>(k));
    WriteCells(plane, cells);
    ORXSimDistributionID const space = CreateField(context, {2, 3, 4});
    CreateDrawer(space, {}, 0.25);
    int const labels[] = {8, 3, 5};
    ORXSimCollection const collection(context.CreateCollection(0, {}));
    ORXSimCSetID const set = collection.CreateOrderedCSet(labels, 3);
    ORXSimDistribution const integers(
        context.CreateDistribution(ORXSimGrid({collection.ID()}), ORXSimRangeType(ORXSimTypeKey::Int32), {}));
    int const numbers[] = {-1, 0, 2147483647};
    ORXSimTransfer transfer = TransferOf(integers.ID()).SetMakeNewDrawer().SetWrite();
    transfer.SetDim(0, set).SetBuffer(0, numbers, 12).ExecWrite();
    WriteSparse(CreateField(context, {3, 4}), {5, 7, 9}, {0, 1, 3}, {0, 2, 2, 3});
    database.Close();
  }

  TemporaryFolder m_folder;
};

class WithH5py : public Interop {
protected:
  void SetUp() override {
    if (!Has(std::string(python) + " -c 'import h5py'")) GTEST_SKIP() << "h5py is not installed";
  }
};

TEST_F(WithH5py, ReadsWhatWeWrite) {
  WriteSample();
  EXPECT_EQ(Python(R"(c = F['context_0']
d = c['distribution_0/drawer']
print(d.shape, d.dtype, d.chunks)
print(numpy.array_equal(d[:], numpy.sqrt(numpy.arange(35.)).reshape(5, 7)))
print((c['distribution_1/drawer'][:] == 0.25).all(), c['distribution_1/drawer'].shape)
print(list(c['distribution_2/drawer'][:]))
table = lambda name: c[name][:c[name].attrs['rows']]
numbers = table('numbers')
row = table('distributions')[2]
print(list(numbers[row['list']:][:4 * row['rank']]))
s = table('sets')[numbers[row['list'] + 2]]
print(list(numbers[s['list']:][:s['count']]))
print([int(r['count']) for r in table('members')])
m = c['distribution_3/drawer']
print(list(m['data'][:]), list(m['ir'][:]), list(m['jc'][:]), m.attrs['MATLAB_sparse'])
)"),
            "(5, 7) float64 (5, 7)\nTrue\nTrue (2, 3, 4)\n[-1, 0, 2147483647]\n[5, 0, 5, 0]\n[8, 3, 5]\n"
            "[5, 7, 2, 3, 4, 3, 3, 4]\n"
            "[5.0, 7.0, 9.0] [0, 1, 3] [0, 2, 2, 3] 4\n");
}

TEST_F(WithH5py, SciPyTakesTheSparseArrays) {
  if (!Has(std::string(python) + " -c 'import scipy.sparse'")) GTEST_SKIP() << "SciPy is not installed";
  WriteSample();
  EXPECT_EQ(Python(R"(from scipy.sparse import csr_matrix
m = F['context_0/distribution_3/drawer']
print(csr_matrix((m['data'], m['ir'], m['jc']), shape=(3, m.attrs['MATLAB_sparse'])).toarray().tolist())
)"),
            "[[5.0, 7.0, 0.0, 0.0], [0.0, 0.0, 0.0, 0.0], [0.0, 0.0, 0.0, 9.0]]\n");
}

/// A file of another program in the layout of version 1: chunked, contiguous, compressed, big-endian, sparse.
constexpr char formerFile[] = R"(F.attrs['format'] = 'orx simulation database'
F.attrs['format_version'] = 1
c = F.create_group('context_0')
c.attrs['namespace'] = [-1, -1]
for k, n in enumerate((4, 6)):
    g = c.create_group('collection_%d' % k)
    g.attrs['members'], g.attrs['type'] = n, -1
    s = c.create_group('set_%d' % k)
    s.attrs['collection'], s.attrs['count'], s.attrs['start'], s.attrs['stride'] = k, n, 0, 1
a = numpy.arange(24.).reshape(4, 6)
for k, (data, options) in enumerate((
        (a, dict(chunks=(2, 3), maxshape=(None, None))),
        (a, dict()),
        (a, dict(chunks=(2, 3), compression='gzip')),
        (a.astype('>f8'), dict()))):
    d = c.create_group('distribution_%d' % k)
    d.attrs['grid'], d.attrs['range'], d.attrs['type'] = [[0, 0], [1, 0]], 2, -1
    d.create_dataset('drawer', data=data, **options).attrs['sets'] = [0, 1]
d = c.create_group('distribution_4')
d.attrs['grid'], d.attrs['range'], d.attrs['type'] = [[0, 0], [1, 0]], 2, -1
m = d.create_group('drawer')
m.attrs['sets'], m.attrs['MATLAB_sparse'] = [0, 1], 6
m['data'], m['ir'], m['jc'] = [1.5, 2.5], [5, 0], [0, 1, 1, 1, 2]
c['set_1']['labels'] = numpy.array([2, 3, 5, 7, 11, 13], 'i4')
del c['set_1'].attrs['start']
c['collection_1']['labels'] = numpy.array([7, 11, 13], 'i4')
c['collection_1'].attrs['colors'] = [3]
c.create_group('types').attrs['0'] = 'stiffness'
)";

TEST_F(WithH5py, WritesWhatWeRead) {
  Python(formerFile, "w");

  ORXSimDatabase database;
  Open(database, Path());
  auto const fields = ORXSimContext(database.Contexts()[0]).Distributions();
  ASSERT_EQ(fields.Size(), 5);
  std::vector<double> expected(24);
  std::iota(expected.begin(), expected.end(), 0.0);
  for (int k = 0; k < 4; ++k)
    EXPECT_EQ(CellsOf(fields[k]), expected) << k;
  EXPECT_EQ(Read<2>(fields[2], {{1, 2}, {3, 3}})[1], 15.0);
  std::vector<int> starts(5);
  ORXSimTransfer transfer = TransferOf(fields[4]).SetSerialization(DrawerOf(fields[4]).Serialization());
  Lend(transfer.SetRead(), 2, starts).ExecRead();
  EXPECT_EQ(starts[4], 2);

  // Written where the bytes are ours to write, refused where they are not.
  std::string text;
  for (double& cell : expected)
    cell = -cell;
  for (int const k : {0, 1})
    EXPECT_EQ(CodeOf([&] { WriteCells(fields[k], expected); }, &text), 0) << text;
  for (int const k : {2, 3})
    EXPECT_EQ(CodeOf([&] { WriteCells(fields[k], expected); }, &text), ORXSimException::writeFailed);
  EXPECT_NE(text.find("another program"), std::string::npos) << text;
  // Their chunks have no space before they are written, which may be too late.
  ORXSimCSetID const more =
      ORXSimCollection(ORXSimDistribution(fields[0]).Collection(0)).CreateCSetStrided(4, 1, 1, 1);
  for (int k = 0; k < 4; ++k)
    EXPECT_EQ(
        CodeOf([&] { ORXSimTransfer(ORXSimDistribution(fields[k])).SetDimExtension(more).CheckView(); }),
        ORXSimException::viewDoesNotFit);
  database.Close();
  EXPECT_EQ(Python("print([int(F['context_0/distribution_%d/drawer' % k][3, 5]) for k in range(4)])\n"),
            "[-23, -23, 23, 23]\n");
}

/// Opens the file and looks at every drawer.
int CodeOfWalk(std::string const& path, bool readOnly, std::string* text) {
  return CodeOf(
      [&] {
        ORXSimDatabase database;
        Open(database, path, readOnly);
        for (ORXSimContextID const& context : database.Contexts())
          for (ORXSimDistributionID const& field : ORXSimContext(context).Distributions())
            DrawerOf(field);
      },
      text);
}

TEST_F(WithH5py, FilesThatMakeNoSenseAreDamaged) {
  WriteSample();
  std::string const present = ReadWhole(Path());
  Python(formerFile, "w");
  std::string const former = ReadWhole(Path());
  for (auto const& [isFormer, change] : std::vector<std::pair<bool, char const*>>{
           {true, "F['context_0/set_0'].attrs['collection'] = 77"},
           {true, "F['context_0/distribution_0'].attrs['grid'] = [[0, 0], [77, 0]]"},
           {true, "F['context_0/distribution_0/drawer'].attrs['sets'] = [0, 77]"},
           {true, "F['context_0/distribution_0'].attrs['type'] = 1"},
           {true, "F['context_0/distribution_0/drawer'].resize((4, 5))"},
           {true, "del F['context_0/set_0'].attrs['count']"},
           {true, "F['context_0'].create_group('set_x')"},
           {true, "S = F['context_0/set_1']; del S['labels']; S.create_dataset('labels', shape=(2**31 - 1,), "
                  "dtype='i4', chunks=(2**20,), compression='gzip')"},
           {true, "S = F['context_0/set_1']; del S['labels']; S.create_dataset('labels', shape=(2**31 - 1,), "
                  "dtype='i4', external=[('/dev/zero', 0, 2**33)])"},
           {true, "F['context_0/set_2'] = F['context_0/set_1']"},
           {true, "G = F.create_group('trash/a/b'); [G := G.create_group('c') for k in range(30)]"},
           {false, "G = F.create_group('pending/a/b')"},
           {false,
            "D = F['context_0/distribution_0']; del D['drawer']; D['drawer'] = h5py.SoftLink('drawer')"},
           {false, "S = F['context_0/sets']; r = S[0]; r['count'] = 6; S[0] = r"},
           {false, "S = F['context_0/sets']; S[0], S[1] = S[1], S[0]"},
           {false, "F['context_0/sets'].attrs['rows'] = 10**9"},
           {false, "F['context_0/numbers'][1] += 1"},
           {false, "del F['context_0/numbers']"},
           {false, "S = F['context_0/distribution_3/drawer']; del S['data']; S.create_dataset('data', "
                   "shape=(2**31 - 1,), dtype='f8', chunks=(2**20,), compression='gzip')"},
           {false,
            "G = h5py.File(F.filename + '2', 'w', userblock_size=512); F.copy('context_0', G)\n"
            "G.attrs.update(F.attrs); G.close(); import os; os.rename(F.filename + '2', F.filename)"}}) {
    WriteWhole(Path(), isFormer ? former : present);
    Python(change, "r+");
    std::string text;
    bool const isLeftover = std::string(change).find("create_group('trash") != std::string::npos ||
                            std::string(change).find("pending") != std::string::npos;
    EXPECT_EQ(CodeOfWalk(Path(), !isLeftover, &text), ORXSimException::damaged) << change << ": " << text;
  }
}

// Version 1 is read as it is, and rewritten at the first change, all or nothing.
TEST_F(WithH5py, FilesOfTheFormerFormatAreRewrittenAtTheirFirstChange) {
  Python(formerFile, "w");
  std::string const former = ReadWhole(Path());
  auto const expectContent = [&](ORXSimDatabase& database) {
    ORXSimContext const context(database.Contexts()[0]);
    auto const fields = context.Distributions();
    ASSERT_EQ(fields.Size(), 5);
    for (int k = 0; k < 4; ++k) {
      EXPECT_EQ(CellsOf(fields[k])[23], 23.0);
      EXPECT_EQ(Members(DrawerOf(fields[k]).DimensionCSetID(1)), (std::vector<int>{2, 3, 5, 7, 11, 13}));
    }
    EXPECT_TRUE(DrawerOf(fields[4]).Serialization().IsSparse());
    EXPECT_EQ(ORXSimCollection(context.Collections()[1]).Size(), 9);
    EXPECT_STREQ(context.Schema().Name(0).AsText(), "stiffness");
  };
  {
    ORXSimDatabase database;
    Open(database, Path());
    expectContent(database);
    database.Close();
  }
  EXPECT_EQ(ReadWhole(Path()), former) << "nothing was changed";

  for (int failing = 1; failing < 60; ++failing) {
    bool isDone = false;
    {
      ORXSimDatabase database;
      Open(database, Path());
      FaultPlan const full(FaultPlan::Effect::FailOn, failing, ENOSPC);
      isDone = CodeOf([&] { ORXSimContext(database.Contexts()[0]).DefineType("mass"); }) == 0;
      expectContent(database);
    }
    ORXSimDatabase again;
    Open(again, Path(), true);
    expectContent(again);
    if (isDone) break;
    ASSERT_LT(failing, 59);
  }
  EXPECT_EQ(Python("print(F.attrs['format_version'], sorted(F['context_0']), "
                   "[len(D.attrs) for D in F['context_0'].values()])\n"),
            "2 ['collections', 'colors', 'distribution_0', 'distribution_1', 'distribution_2', "
            "'distribution_3', 'distribution_4', 'distributions', 'members', 'numbers', 'sets', 'types'] "
            "[1, 1, 0, 0, 0, 0, 0, 1, 1, 1, 1, 1]\n");
}

TEST_F(WithH5py, CopiesOfOtherToolsAreRead) {
  if (!Has("h5repack --version")) GTEST_SKIP() << "h5repack is not installed";
  WriteSample();
  OutputOf("h5repack '" + Path() + "' '" + m_folder.Path("b.sim") + "'", m_folder.Path("log"));
  OutputOf("cp --sparse=always '" + Path() + "' '" + m_folder.Path("c.sim") + "'", m_folder.Path("log"));
  for (char const* const name : {"b.sim", "c.sim"}) {
    ORXSimDatabase database;
    Open(database, m_folder.Path(name));
    ORXSimDistributionID const field = ORXSimContext(database.Contexts()[0]).Distributions()[0];
    EXPECT_EQ(CellsOf(field)[34], std::sqrt(34.0));
    EXPECT_EQ(CodeOf([&] { WriteCells(field, std::vector<double>(35, 1.0)); }), 0);
  }
}

// The five lines that docs/database-format.md gives.
TEST_F(WithH5py, TheDocumentedLinesWork) {
  {
    ORXSimDatabase database;
    Create(database, m_folder.Path("shapes.sim"));
    ORXSimDistributionID const field = CreateField(ORXSimContext(database.CreateContext({})), {2, 3});
    CreateDrawer(field, {});
    WriteCells(field, {1, 2, 3, 4, 5, 6});
    database.Close();
  }
  std::string const page = ReadWhole(ORX_DOCUMENTS "/database-format.md");
  std::size_t const first = page.find("```python\n") + 10;
  ASSERT_GT(first, 10u);
  WriteWhole(m_folder.Path("p.py"), page.substr(first, page.find("```", first) - first));

  std::string const out =
      OutputOf("cd '" + m_folder.Path("") + "' && " + python + " p.py", m_folder.Path("out"));

  EXPECT_EQ(out, "[[1. 4.]\n [2. 5.]\n [3. 6.]]\n");
}

} // namespace
