#include "tests/mpi/DenseSupport.h"

#include "tools/formats/DatabaseMatrix.h"
#include "tools/mpi/Multiply.h"
#include "tools/terminal/Text.h"

#include "mtx/ORXSrvDenseMatrix.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sys/resource.h>

using namespace orx::mpi;

namespace {

/// Values that are sums of few bits, so that products have no rounding errors whatever their order.
Dense MakeDense(int rows, int columns, bool isSymmetric = false) {
  return Filled(rows, columns, [&](int i, int j) {
    int const low = isSymmetric ? std::min(i, j) : i, high = isSymmetric ? std::max(i, j) : j;
    return (low * 31 + high * 17) % 64 - 31.5;
  });
}

std::vector<int> LabelsFrom(int first, int count) {
  std::vector<int> labels(static_cast<std::size_t>(count));
  std::iota(labels.begin(), labels.end(), first);
  return labels;
}

/// Compares the product in a database with the one by definition.
void ExpectProduct(std::string const& path, Dense const& a, bool isTransposed, Dense const& b, int rowLabel,
                   int columnLabel) {
  Dense const expected = (isTransposed ? Transposed(a) : a) * b;
  ORXSimDatabase database;
  orx::tool::OpenToRead(database, path);
  orx::tool::StoredMatrix const stored = orx::tool::FindMatrix(database, path, "product", "");
  ASSERT_EQ(std::pair(stored.rows, stored.columns), std::pair(expected.rows, expected.columns));
  Dense found(expected.rows, expected.columns);
  ORXSrvDenseMatrix(stored.id).GetAllValues(found.Data());
  EXPECT_TRUE(Near(expected, found, 0.0));
  EXPECT_EQ(orx::tool::RowLabels(stored), LabelsFrom(rowLabel, expected.rows));
  EXPECT_EQ(orx::tool::ColumnLabels(stored), LabelsFrom(columnLabel, b.columns));
}

} // namespace

TEST(Multiply, IsExactForAwkwardShapesFormsAndBlocks) {
  struct Case {
    int rows, inner, columns;
    Form ofA, ofB;
  };
  SharedFolder const folder;
  for (Case const& c : {Case{1, 1, 1, Form::Whole, Form::Whole},
                        {1, 1, 1, Form::Sparse, Form::Whole},
                        {7, 5, 3, Form::Chunked, Form::Whole},
                        {2, 61, 1, Form::Whole, Form::Chunked},
                        {53, 31, 17, Form::Chunked, Form::Chunked},
                        {41, 41, 13, Form::Symmetric, Form::Chunked},
                        {13, 41, 41, Form::Whole, Form::Symmetric},
                        {53, 31, 17, Form::Sparse, Form::Chunked},
                        {3, 97, 2, Form::Sparse, Form::Whole}})
    for (bool const isTransposed : {false, true})
      for (int const blockLength : {1, 5, 0}) {
        SCOPED_TRACE(testing::Message()
                     << c.rows << " x " << c.inner << " x " << c.columns << ", forms "
                     << static_cast<int>(c.ofA) << " " << static_cast<int>(c.ofB)
                     << (isTransposed ? ", transposed" : "") << ", blocks " << blockLength);
        Dense const a = MakeDense(isTransposed ? c.inner : c.rows, isTransposed ? c.rows : c.inner,
                                  c.ofA == Form::Symmetric);
        Dense const b = MakeDense(c.inner, c.columns, c.ofB == Form::Symmetric);
        std::string const out = folder.Path("C.sim");
        WriteMatrix(folder.Path("A.sim"), a, c.ofA);
        WriteMatrix(folder.Path("B.sim"), b, c.ofB);

        MultiplyText({folder.Path("A.sim"), folder.Path("B.sim:0/0"), out, isTransposed, blockLength,
                      blockLength > 0 ? 40 : 1 << 21},
                     AllRanks());

        if (AllRanks().IsRoot())
          ExpectProduct(out, a, isTransposed, b, isTransposed && c.ofA != Form::Symmetric ? 200 : 100,
                        c.ofB == Form::Symmetric ? 100 : 200);
        MPI_Barrier(AllRanks().Communicator());
      }
}

TEST(Multiply, RefusesWhatDoesNotFitAndLeavesTheOlderFile) {
  SharedFolder const folder;
  WriteMatrix(folder.Path("A.sim"), MakeDense(7, 5), Form::Whole);
  WriteMatrix(folder.Path("B.sim"), MakeDense(7, 3), Form::Whole);
  WriteMatrix(folder.Path("S.sim"), MakeDense(5, 5), Form::Sparse);
  WriteMatrix(folder.Path("C.sim"), MakeDense(2, 2), Form::Whole);
  AllRanks().OnRoot([&] { std::ofstream(folder.Path("text.sim")) << "1 1 1\n"; });
  struct Case {
    char const *a, *b, *out, *message;
  };
  for (Case const& c : {Case{"A.sim", "B.sim", "C.sim", "has 5 columns, B ('"},
                        {"A.sim", "S.sim", "C.sim", "expected a dense B"},
                        {"S.sim", "B.sim", "C.sim", "has 5 columns, B ('"},
                        {"A.sim", "A.sim:Q", "C.sim", "holds no matrix 'Q'"},
                        {"text.sim", "B.sim", "C.sim", "text.sim' is no database"},
                        {"none.sim", "B.sim", "C.sim", "none.sim': No such file"},
                        {"S.sim", "A.sim", "A.sim", "has 5 columns, B ('"},
                        {"B.sim", "A.sim", "C.txt", "has 3 columns"}}) {
    std::string const text = SharedText([&] {
      MultiplyText({folder.Path(c.a), folder.Path(c.b), folder.Path(c.out)}, AllRanks());
    });
    EXPECT_NE(text.find(c.message), std::string::npos) << text;
  }
  std::string const input = SharedText(
      [&] {
        MultiplyText({folder.Path("A.sim"), folder.Path("B.sim"), folder.Path("B.sim"), true}, AllRanks());
      },
      orx::tool::ExitCode::WrongUsage);
  EXPECT_NE(input.find("OUT names the input file"), std::string::npos) << input;
  if (!AllRanks().IsRoot()) return;
  ORXSimDatabase database;
  orx::tool::OpenToRead(database, folder.Path("C.sim"));
  EXPECT_EQ(orx::tool::ListMatrices(database)[0].rows, 2);
}

TEST(Multiply, ADiskThatIsFullIsAnErrorOfAllRanksAndTheOlderFileStays) {
  SharedFolder const folder;
  WriteMatrix(folder.Path("A.sim"), MakeDense(400, 3), Form::Whole);
  WriteMatrix(folder.Path("B.sim"), MakeDense(3, 300), Form::Whole);
  WriteMatrix(folder.Path("C.sim"), MakeDense(2, 2), Form::Whole);
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  rlimit const small{200000, before.rlim_max};
  auto* const handler = std::signal(SIGXFSZ, SIG_IGN);
  setrlimit(RLIMIT_FSIZE, &small);

  std::string const text = SharedText(
      [&] {
        MultiplyText({folder.Path("A.sim"), folder.Path("B.sim"), folder.Path("C.sim")}, AllRanks());
      },
      orx::tool::ExitCode::Failure);

  setrlimit(RLIMIT_FSIZE, &before);
  std::signal(SIGXFSZ, handler);
  EXPECT_NE(text.find("C.sim"), std::string::npos) << text;
  if (!AllRanks().IsRoot()) return;
  ORXSimDatabase database;
  orx::tool::OpenToRead(database, folder.Path("C.sim"));
  EXPECT_EQ(orx::tool::ListMatrices(database)[0].rows, 2);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.Path("")), {}), 3);
}
