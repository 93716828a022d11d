#include "ToolSupport.h"

#include "tools/formats/FileKind.h"

#include <sys/stat.h>

namespace {

using orx::tool::CandidateKinds;
using orx::tool::FileKind;

std::vector<FileKind> KindsOf(std::string const& content) {
  TemporaryFolder const folder;
  return CandidateKinds(folder.Write("a", content));
}

using Kinds = std::vector<FileKind>;

//   4 -1
//  -1  2      in every binary type

std::string FortranFile() {
  return Raw<int>({4, 2, 4}) + Raw<int>({16, 1, 1}) + Raw<double>({4}) + Raw<int>({16, 28, 2, 2, 1}) +
         Raw<double>({2, -1}) + Raw<int>({28});
}

std::string SymmetricBlocks() {
  return Raw<int>({2, 1, 1, 0, 1, 0}) + Raw<int>({0, 0, 1}) + Raw<double>({4, 2}) + Raw<int>({0, 99}) +
         Raw<double>({-1, 99});
}

/// Two sections of values; the stored position, (2, 1), is in the second one.
std::string UnsymmetricBlocks() {
  return Raw<int>({2, 1, 1, 1, 1, 0}) + Raw<int>({0, 0, 1}) + Raw<double>({4, 2}) + Raw<int>({0, 99}) +
         Raw<double>({-1, 99}) + Raw<double>({-1, 99});
}

std::string ChunkedFile() {
  return Raw<int>({2, 1, 1, 0, 17, 1}) + Raw<int>({0, 0, 1}) + Raw<double>({4, 2}) + Raw<int>({0}) +
         Zeros(4 * 131071) + Raw<double>({-1}) + Zeros(8 * 131071) + Raw<int>({2, 0, 0, 1, 0, 1, 1, 0, 1});
}

std::string DenseFile() { return Raw<int>({2, 2, 2, 2}) + Raw<double>({4, -1, -1, 2}); }

TEST(FileKind, BinaryTypesAreToldByHeaderAndSize) {
  EXPECT_EQ(KindsOf(FortranFile()), Kinds{FileKind::Fortran});
  EXPECT_EQ(KindsOf(SymmetricBlocks()), Kinds{FileKind::Blocks});
  EXPECT_EQ(KindsOf(UnsymmetricBlocks()), Kinds{FileKind::Blocks});
  EXPECT_EQ(KindsOf(ChunkedFile()), Kinds{FileKind::Chunks});
  EXPECT_EQ(KindsOf(DenseFile()), Kinds{FileKind::Dense});
}

TEST(FileKind, BinaryTypesAreReadAsTheMatrixThatTheyHold) {
  TemporaryFolder const folder;
  for (std::string const& content :
       {FortranFile(), SymmetricBlocks(), UnsymmetricBlocks(), ChunkedFile(), DenseFile()})
    EXPECT_EQ(TextOf(orx::tool::LoadMatrix(folder.Write("a", content))), "2 x 2: 1,1=4 1,2=-1 2,1=-1 2,2=2");
}

TEST(FileKind, AByteMoreOrLessIsNoMatrixFile) {
  for (std::string const& content : {FortranFile(), ChunkedFile(), DenseFile()}) {
    EXPECT_EQ(KindsOf(content.substr(0, content.size() - 1)), Kinds{});
    EXPECT_EQ(KindsOf(content + '\1'), Kinds{});
  }
}

TEST(FileKind, TheLastBlockMayEndWithTheLastValue) {
  for (std::string const& content : {SymmetricBlocks(), UnsymmetricBlocks()}) {
    EXPECT_EQ(KindsOf(content + '\1'), Kinds{});
    EXPECT_EQ(KindsOf(content.substr(0, content.size() - 8)), Kinds{FileKind::Blocks});
    EXPECT_EQ(KindsOf(content.substr(0, content.size() - 9)), Kinds{});
  }
}

TEST(FileKind, DamagedTablesAreNoMatrixFile) {
  auto const damaged = [](std::string content, std::size_t word) {
    content[4 * word] = static_cast<char>(content[4 * word] + 1);
    return KindsOf(content);
  };

  EXPECT_EQ(damaged(FortranFile(), 3), Kinds{}) << "leading record length";
  EXPECT_EQ(damaged(FortranFile(), 8), Kinds{}) << "trailing or leading record length";
  EXPECT_EQ(damaged(FortranFile(), 9), Kinds{}) << "pairs of a row";
  EXPECT_EQ(damaged(SymmetricBlocks(), 6), Kinds{}) << "first row start";
  EXPECT_EQ(damaged(SymmetricBlocks(), 8), Kinds{}) << "last row start";
  EXPECT_EQ(damaged(ChunkedFile(), 2), Kinds{}) << "number of chunks";
  EXPECT_EQ(damaged(DenseFile(), 2), Kinds{}) << "rows again";
}

TEST(FileKind, HugeHeadersAreNoMatrixFile) {
  EXPECT_EQ(KindsOf(Raw<int>({2147483647, 2147483647, 2147483647, 2147483647})), Kinds{});
  EXPECT_EQ(KindsOf(Raw<int>({0, 0, 2147483647, 1, 30, 0, 0})), Kinds{});
  EXPECT_EQ(KindsOf(Raw<int>({-1, -1, -1, -1, -1, -1, -1})), Kinds{});
}

TEST(FileKind, EmptyMatricesOfBinaryTypes) {
  EXPECT_EQ(KindsOf(Raw<int>({4, 0, 4})), Kinds{FileKind::Fortran});
  EXPECT_EQ(KindsOf(Raw<int>({0, 0, 0, 0, 3, 0, 0})), Kinds{FileKind::Blocks});
  EXPECT_EQ(KindsOf(Raw<int>({0, 0, 0, 0})), Kinds{FileKind::Dense});
}

TEST(FileKind, TextIsToldByItsFirstLine) {
  EXPECT_EQ(KindsOf("1 1 2.5\n"), Kinds{FileKind::Triplets});
  EXPECT_EQ(KindsOf(""), Kinds{FileKind::Triplets});
  EXPECT_EQ(KindsOf(" \r\n"), Kinds{FileKind::Triplets});
  EXPECT_EQ(KindsOf("\n0,0,  2.5\n"), Kinds{FileKind::Commas});
  EXPECT_EQ(KindsOf("1,1,1,2, 2.5"), Kinds{FileKind::NodeDofs});
  EXPECT_EQ(KindsOf(General("")), Kinds{FileKind::MatrixMarket});
  EXPECT_EQ(KindsOf("%%matrixmarket MATRIX ARRAY real general\n"), Kinds{FileKind::MatrixMarketArray});
  EXPECT_EQ(KindsOf("1 1 2.5\n\1"), Kinds{});
}

/// A Fortran file of order 16 whose row 1 has a record as long as its order: its first four words are also
/// the header of a dense 4 x 16 matrix, and 11 pairs beyond the diagonals give it that one's size.
std::string FortranOrDense() {
  std::string bytes;
  bytes += Raw<int>({4, 16, 4});
  for (int row = 1; row <= 16; ++row) {
    int const pairs = row == 16 ? 12 : 1;
    bytes += Raw<int>({4 + 12 * pairs, pairs, row});
    for (int column = 1; column < pairs; ++column)
      bytes += Raw<int>({column});
    for (int value = 0; value < pairs; ++value)
      bytes += Raw<double>({1.0});
    bytes += Raw<int>({4 + 12 * pairs});
  }
  return bytes;
}

TEST(FileKind, SeveralCandidatesAreAnErrorThatNamesThem) {
  TemporaryFolder const folder;
  std::string const path = folder.Write("a", FortranOrDense());

  EXPECT_EQ(CandidateKinds(path), (Kinds{FileKind::Fortran, FileKind::Dense}));
  EXPECT_CONTAINS(Ending([&] { orx::tool::LoadMatrix(path); }),
                  "can be of several types: fortran, dense; orxmtx convert with --from");
  EXPECT_EQ(orx::tool::LoadMatrix(path, {FileKind::Fortran, {}}).NumberOfRows(), 16);
  EXPECT_EQ(orx::tool::LoadMatrix(path, {FileKind::Dense, {}}).NumberOfRows(), 4);
}

TEST(FileKind, NoCandidateIsAnErrorWithTheSize) {
  TemporaryFolder const folder;
  std::string const path = folder.Write("a", std::string("\1\2\3", 3));

  EXPECT_CONTAINS(Ending([&] { orx::tool::LoadMatrix(path); }), "1 '" + path + "' is no matrix file");
  EXPECT_CONTAINS(Ending([&] { orx::tool::LoadMatrix(path); }), "size of 3 bytes");
}

TEST(FileKind, AnOlderTailIsIgnoredWhenTheTypeIsSaid) {
  TemporaryFolder const folder;
  std::string const path = folder.Write("a", DenseFile() + "the end of an older, longer file");

  EXPECT_EQ(CandidateKinds(path), Kinds{});
  EXPECT_EQ(TextOf(orx::tool::LoadMatrix(path, {FileKind::Dense, {}})), "2 x 2: 1,1=4 1,2=-1 2,1=-1 2,2=2");
}

TEST(FileKind, APipeIsReadOnceAsWhatItHolds) {
  TemporaryFolder const folder;
  std::string const pipe = folder.Path("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  for (std::string const& content :
       {std::string("1 2 3.5\n"), std::string("0,1,3.5\n"), General("1 2 1\n1 2 3.5\n")}) {
    ASSERT_EQ(std::system(("cat '" + folder.Write("content", content) + "' >'" + pipe + "' &").c_str()), 0);
    EXPECT_EQ(TextOf(orx::tool::LoadMatrix(pipe)), "1 x 2: 1,2=3.5");
  }
}

TEST(FileKind, TextOfOtherEditorsIsTheSameText) {
  TemporaryFolder const folder;
  for (std::string const content : {"1 2 3.5\r\n", "0,1,3.5\r\n", "1,1,1,0,3.5",
                                    "%%MatrixMarket matrix coordinate real general\r\n1 2 1\r\n1 2 3.5\r\n"})
    EXPECT_EQ(TextOf(orx::tool::LoadMatrix(folder.Write("a", "\xEF\xBB\xBF" + content))).substr(0, 6),
              "1 x 2:")
        << content;
}

} // namespace
