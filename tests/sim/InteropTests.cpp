#include "DatabaseSupport.h"

#include <cmath>
#include <fstream>
#include <sstream>

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
    ORXSimTransfer(integers)
        .SetMakeNewDrawer()
        .SetWrite()
        .SetDim(0, set)
        .SetBuffer(0, numbers, 12)
        .ExecWrite();
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

TEST_F(Interop, H5dumpReadsEveryCell) {
  if (!Has("h5dump --version")) GTEST_SKIP() << "h5dump is not installed";
  WriteSample();
  std::string const out = m_folder.Path("cells.bin");
  OutputOf("h5dump -d /context_0/distribution_0/drawer -b LE -o '" + out + "' '" + Path() + "'",
           m_folder.Path("log"));

  std::string const bytes = ReadWhole(out);
  ASSERT_EQ(bytes.size(), 35 * sizeof(double));
  auto const* const cells = reinterpret_cast<double const*>(bytes.data());
  for (int k = 0; k < 35; ++k)
    EXPECT_EQ(cells[k], std::sqrt(static_cast<double>(k)));
  EXPECT_NE(OutputOf("h5dump -A '" + Path() + "'", m_folder.Path("log")).find("orx simulation database"),
            std::string::npos);
}

TEST_F(WithH5py, ReadsWhatWeWrite) {
  WriteSample();
  EXPECT_EQ(Python(R"(c = F['context_0']
d = c['distribution_0/drawer']
print(d.shape, d.dtype, d.chunks, list(d.attrs['chunks']))
print(numpy.array_equal(d[:], numpy.sqrt(numpy.arange(35.)).reshape(5, 7)))
print((c['distribution_1/drawer'][:] == 0.25).all(), c['distribution_1/drawer'].shape)
print(list(c['distribution_2/drawer'][:]), list(c['distribution_2'].attrs['grid'][0]))
s = c['set_' + str(c['distribution_2/drawer'].attrs['sets'][0])]
print(list(s['labels'][:]), s.attrs['count'])
m = c['distribution_3/drawer']
print(list(m['data'][:]), list(m['ir'][:]), list(m['jc'][:]), m.attrs['MATLAB_sparse'])
)"),
            "(5, 7) float64 (5, 7) [2, 3]\nTrue\nTrue (2, 3, 4)\n[-1, 0, 2147483647] [5, 0]\n[8, 3, 5] 3\n"
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

// A file of another program in our layout: chunked, contiguous, compressed, big-endian, sparse.
TEST_F(WithH5py, WritesWhatWeRead) {
  Python(R"(F.attrs['format'] = 'orx simulation database'
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
)",
         "w");

  ORXSimDatabase database;
  Open(database, Path());
  auto const fields = ORXSimContext(database.Contexts()[0]).Distributions();
  ASSERT_EQ(fields.Size(), 5);
  std::vector<double> expected(24);
  for (std::size_t k = 0; k < 24; ++k)
    expected[k] = static_cast<double>(k);
  for (int k = 0; k < 4; ++k)
    EXPECT_EQ(CellsOf(fields[k]), expected) << k;
  double pair[2] = {0, 0};
  ORXSimTransfer(ORXSimDistribution(fields[2]))
      .SetRead()
      .SetDimOrdinalRange(0, {}, 1, 2)
      .SetDimOrdinalRange(1, {}, 3, 3)
      .SetBuffer(0, pair, 16)
      .ExecRead();
  EXPECT_EQ(pair[1], 15.0);
  int starts[5] = {};
  ORXSimTransfer(ORXSimDistribution(fields[4]))
      .SetRead()
      .SetSerialization(DrawerOf(fields[4]).Serialization())
      .SetBuffer(2, starts, 20)
      .ExecRead();
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

TEST_F(WithH5py, FilesThatMakeNoSenseAreDamaged) {
  for (char const* const change :
       {"F['context_0/set_0'].attrs['collection'] = 77",
        "F['context_0/distribution_0'].attrs['grid'] = [[0, 0], [77, 0]]",
        "F['context_0/distribution_0/drawer'].attrs['sets'] = [0, 77]",
        "F['context_0/distribution_0'].attrs['type'] = 0",
        "F['context_0/distribution_0/drawer'].resize((5, 6))", "del F['context_0/set_0'].attrs['count']",
        "F['context_0'].create_group('set_x')",
        "D = F['context_0/distribution_0']; del D['drawer']; D['drawer'] = h5py.SoftLink('drawer')",
        "G = h5py.File(F.filename + '2', 'w', userblock_size=512); F.copy('context_0', G)\n"
        "G.attrs.update(F.attrs); G.close(); import os; os.rename(F.filename + '2', F.filename)"}) {
    std::filesystem::remove(Path());
    WriteSample();
    Python(change, "r+");
    ORXSimDatabase database;
    std::string text;
    EXPECT_EQ(CodeOf([&] { Open(database, Path(), true); }, &text), ORXSimException::damaged)
        << change << ": " << text;
  }
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
