#include "ToolSupport.h"

#include "tools/commands/Compare.h"
#include "tools/commands/Convert.h"
#include "tools/formats/OutputFile.h"

#include <fcntl.h>
#include <map>
#include <sys/stat.h>

namespace {

using orx::tool::ConvertOptions;
using orx::tool::ConvertText;
using orx::tool::FileKind;

//   4 -1  0
//  -1  2  7
//   0  7  0.1
char const symmetricText[] = "1 1 4\n1 2 -1\n2 1 -1\n2 2 2\n2 3 7\n3 2 7\n3 3 0.1\n";
char const symmetricEntries[] = "3 x 3: 1,1=4 1,2=-1 2,1=-1 2,2=2 2,3=7 3,2=7 3,3=0.1";

/// What of the command line a test says.
struct Request {
  char const* to = "";
  char const* triangle = "";
  int base = -1, dofsPerNode = 0, digits = 16;
};

class Convert : public testing::Test {
protected:
  std::string Write(std::string const& name, std::string const& text) const {
    return m_folder.Write(name, text);
  }
  std::string Path(std::string const& name) const { return m_folder.Path(name); }
  std::string Say(std::string const& out, std::string const& in, Request const& request = {}) const {
    ConvertOptions options;
    options.inPath = in;
    options.outPath = Path(out);
    options.to = request.to;
    options.triangle = request.triangle;
    options.base = request.base;
    options.dofsPerNode = request.dofsPerNode;
    options.digits = request.digits;
    return ConvertText(options);
  }
  /// What the file `out` holds after a conversion.
  std::string To(std::string const& out, std::string const& in, Request const& request = {}) const {
    Say(out, in, request);
    return m_folder.Read(out);
  }
  std::string Failure(std::string const& out, std::string const& in, Request const& request = {}) const {
    return Ending([&] { To(out, in, request); });
  }
  std::string Loaded(std::string const& name) const { return TextOf(orx::tool::LoadMatrix(Path(name))); }

  TemporaryFolder m_folder;
};

TEST_F(Convert, EveryTypeBecomesEveryOther) {
  std::string const source = Write("source.txt", symmetricText);
  for (orx::tool::FileKindDescription const& first : orx::tool::FileKinds()) {
    To("first", source, {.to = first.name, .dofsPerNode = 2});
    ASSERT_EQ(orx::tool::CandidateKinds(Path("first")), std::vector{first.kind});
    for (orx::tool::FileKindDescription const& second : orx::tool::FileKinds()) {
      SCOPED_TRACE(std::string(first.name) + " to " + second.name);
      To("second", Path("first"), {.to = second.name, .dofsPerNode = 2});
      EXPECT_EQ(orx::tool::CandidateKinds(Path("second")), std::vector{second.kind});
      EXPECT_EQ(Loaded("second"), symmetricEntries);
    }
  }
}

TEST_F(Convert, DiagonalAndEmptyMatricesGoThroughEveryType) {
  std::string const diagonal = Write("diagonal.txt", "1 1 4\n2 2 -3\n");
  std::string const empty = Write("empty.txt", "");
  for (orx::tool::FileKindDescription const& type : orx::tool::FileKinds()) {
    SCOPED_TRACE(type.name);
    To("out", diagonal, {.to = type.name, .dofsPerNode = 1});
    EXPECT_EQ(Loaded("out"), "2 x 2: 1,1=4 2,2=-3");
    To("out", empty, {.to = type.name, .dofsPerNode = 1});
    EXPECT_EQ(Loaded("out"), "0 x 0:");
  }
}

TEST_F(Convert, RectanglesGoThroughGeneralTypes) {
  std::string const source = Write("source.mtx", General("2 3 3\n1 1 4\n1 3 -0.5\n2 2 3\n"));
  for (char const* type : {"triplets", "commas", "nodedofs", "mtx", "mtx-array", "dense"}) {
    To("out", source, {.to = type, .dofsPerNode = 1});
    EXPECT_EQ(Loaded("out"), "2 x 3: 1,1=4 1,3=-0.5 2,2=3") << type;
  }
  for (char const* type : {"fortran", "blocks", "chunks"})
    EXPECT_CONTAINS(Failure("none", source, {.to = type}), "1 the matrix is 2 x 3; expected a square");
}

TEST_F(Convert, TextTypesAreWrittenAsDocumented) {
  std::string const source = Write("source.txt", "1 1 4\n3 2 0.5\n3 3 1\n");

  EXPECT_EQ(To("a.csv", source), "0,0, 4.000000000000000e+00\n2,1, 5.000000000000000e-01\n"
                                 "2,2, 1.000000000000000e+00\n");
  EXPECT_EQ(To("a.dof", source, {.dofsPerNode = 2}), "1,1,1,1,4.000000000000000e+00\n"
                                                     "2,1,1,2,5.000000000000000e-01\n"
                                                     "2,1,2,1,1.000000000000000e+00\n");
  EXPECT_CONTAINS(Failure("b.dof", source), "2 text by nodes needs --dofs-per-node");
}

TEST_F(Convert, SeventeenDigitsGiveTheSameDoubleBack) {
  std::string const source =
      Write("source.mtx", General("3 3 3\n1 1 0.1\n3 2 0.30000000000000004\n3 3 -inf\n"));
  for (auto const& [name, text] : std::map<std::string, std::string>{
           {"a.txt", "1 1 1.0000000000000001e-01\n3 2 3.0000000000000004e-01\n3 3 -inf\n"},
           {"a.csv", "0,0, 1.0000000000000001e-01\n2,1, 3.0000000000000004e-01\n2,2, -inf\n"},
           {"a.dof", "1,1,1,1,1.0000000000000001e-01\n2,1,1,2,3.0000000000000004e-01\n2,1,2,1,-inf\n"}}) {
    EXPECT_EQ(To(name, source, {.dofsPerNode = 2, .digits = 17}), text);
    EXPECT_TRUE(orx::tool::CompareFiles(Path(name), source, {}).isEqual) << name;
    EXPECT_NE(To(name, source, {.dofsPerNode = 2}), text);
  }
}

TEST_F(Convert, AsksBeforeAFileOfGigabytesThatAreNearlyAllZeros) {
  std::string const source = Write("source.mtx", General("20000 20000 1\n1 1 1\n"));
  Write("old.bin", "old");

  EXPECT_CONTAINS(Failure("old.bin", source),
                  "becomes 3.2 GB, of 20000 x 20000 values that are nearly all 0; --yes");
  EXPECT_CONTAINS(Failure("old.mtx", Write("b.mtx", General("30000 30000 0\n")), {.to = "mtx-array"}),
                  "becomes 1.8 GB");
  EXPECT_EQ(m_folder.Read("old.bin"), "old");
}

TEST_F(Convert, StandardInputAndOutputAreFilesToo) {
  std::string const in = Write("a.mtx", General("2 2 1\n2 1 5\n"));

  RunResult const result = RunTool("convert --to commas - - <'" + in + "'");

  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.out, "1,0, 5.000000000000000e+00\n");
  EXPECT_CONTAINS(result.err, "standard input: 2 x 2, 1 entry, Matrix Market, coordinate\n");
  EXPECT_CONTAINS(RunTool("info - <'" + Write("bad.txt", "1 x 1\n") + "'").err,
                  "orxmtx: standard input, line 1: a column");
  EXPECT_CONTAINS(RunTool("cmp - - <'" + in + "'").err, "both files are standard input");
  EXPECT_CONTAINS(RunTool("convert '" + in + "' -").err, "standard output has no extension; expected --to");
}

TEST_F(Convert, ASignalLeavesNoUnfinishedFile) {
  ASSERT_EQ(mkfifo(Path("pipe").c_str(), 0600), 0);
  // A writer that never writes keeps the program reading; once its file is there, it is ended.
  std::string const script =
      "sleep 60 >'" + Path("pipe") + "' & writer=$!\n" + "'" ORXMTX_PROGRAM "' convert '" + Path("pipe") +
      "' '" + Path("out.mtx") + "' & pid=$!\n" + "cd '" + Path("") +
      "'; for i in $(seq 500); do ls | grep -q out.mtx.new && break; sleep 0.02; done\n"
      "ls >seen; kill -TERM $pid; wait $pid; echo $? >code; kill $writer\n";

  ASSERT_EQ(std::system(("( " + script + ") 2>/dev/null").c_str()), 0);

  EXPECT_CONTAINS(m_folder.Read("seen"), "out.mtx.new");
  EXPECT_EQ(m_folder.Read("code"), "143\n");
  for (auto const& file : std::filesystem::directory_iterator(Path("")))
    EXPECT_FALSE(file.path().filename().string().starts_with("out")) << file.path();
}

TEST_F(Convert, BinarySymmetricTypesAreWrittenByteForByte) {
  std::string const source = Write("source.txt", "1 1 4\n1 2 -1\n2 1 -1\n2 2 2\n");

  EXPECT_EQ(To("a.unf", source), Raw<int>({4, 2, 4}) + Raw<int>({16, 1, 1}) + Raw<double>({4}) +
                                     Raw<int>({16, 28, 2, 2, 1}) + Raw<double>({2, -1}) + Raw<int>({28}));
  std::string const head = Raw<int>({2, 1, 1, 0, 10, 0}) + Raw<int>({0, 0, 1}) + Raw<double>({4, 2});
  EXPECT_EQ(To("a.blk", source),
            head + Raw<int>({0}) + Zeros(4 * 1023) + Raw<double>({-1}) + Zeros(8 * 1023));
  std::string const upper = Raw<int>({2, 1, 1, 0, 10, 0}) + Raw<int>({0, 1, 1}) + Raw<double>({4, 2});
  EXPECT_EQ(To("b.blk", source, {.triangle = "upper"}),
            upper + Raw<int>({1}) + Zeros(4 * 1023) + Raw<double>({-1}) + Zeros(8 * 1023));
}

TEST_F(Convert, UnsymmetricBlocksHoldBothValuesOfAPosition) {
  //  0 5 0
  //  3 1 0     the mirror image of (1, 3) is stored too, as a zero
  //  8 0 0
  std::string const source = Write("source.txt", "1 2 5\n2 1 3\n2 2 1\n3 1 8\n3 3 0\n");

  To("a.blk", source);

  EXPECT_EQ(Loaded("a.blk"), "3 x 3: 1,1=0 1,2=5 1,3=0 2,1=3 2,2=1 3,1=8 3,3=0");
}

TEST_F(Convert, TriangleSelectsAPartOfASymmetricMatrix) {
  std::string const full = Write("full.txt", symmetricText);
  std::string const lower = Write("lower.txt", "1 1 4\n2 1 -1\n2 2 2\n3 2 7\n3 3 0.1\n");
  for (std::string const& source : {full, lower}) {
    To("a.txt", source, {.triangle = "lower"});
    EXPECT_EQ(Loaded("a.txt"), "3 x 3: 1,1=4 2,1=-1 2,2=2 3,2=7 3,3=0.1");
    To("a.txt", source, {.triangle = "upper"});
    EXPECT_EQ(Loaded("a.txt"), "3 x 3: 1,1=4 1,2=-1 2,2=2 2,3=7 3,3=0.1");
    To("a.txt", source, {.triangle = "full"});
    EXPECT_EQ(Loaded("a.txt"), symmetricEntries);
    To("a.chk", source, {.triangle = "upper"});
    EXPECT_EQ(Loaded("a.chk"), symmetricEntries);
    EXPECT_CONTAINS(To("a.mtx", source, {.triangle = "lower"}), "real symmetric\n3 3 5\n");
    EXPECT_CONTAINS(To("a.mtx", source, {.triangle = "full"}), "real general\n3 3 7\n");
    EXPECT_CONTAINS(Failure("a.mtx", source, {.triangle = "upper"}), "2 Matrix Market files keep the lower");
  }
  EXPECT_CONTAINS(To("a.mtx", full), "real symmetric\n");
  EXPECT_CONTAINS(To("a.mtx", lower), "real general\n");
  EXPECT_CONTAINS(Failure("a.chk", lower), "1 a file of type chunks holds a symmetric matrix, found: lower "
                                           "triangle only; --triangle");
  std::string const unsymmetric = Write("unsymmetric.txt", "1 2 5\n2 1 4\n");
  EXPECT_CONTAINS(Failure("a.txt", unsymmetric, {.triangle = "lower"}), "(2, 1) = 4, (1, 2) = 5");
}

TEST_F(Convert, SkewSymmetricMatricesAreSeen) {
  EXPECT_EQ(To("a.mtx", Write("a.txt", "1 2 -5\n2 1 5\n")),
            "%%MatrixMarket matrix coordinate real skew-symmetric\n2 2 1\n2 1 5\n");
  EXPECT_CONTAINS(To("a.mtx", Write("a.txt", "1 1 0\n1 2 -5\n2 1 5\n2 2 0\n")), "real general\n")
      << "zeros on the diagonal could not be kept";
  EXPECT_CONTAINS(To("a.mtx", Write("a.txt", "1 1 1\n1 2 0\n2 2 1\n")), "real general\n")
      << "a zero without mirror image could not be kept";
}

TEST_F(Convert, BaseSaysWhereTheIndicesOfTextBegin) {
  To("a.mtx", Write("zero.txt", "0 0 4\n1 2 5\n"), {.base = 0});
  EXPECT_EQ(Loaded("a.mtx"), "2 x 3: 1,1=4 2,3=5");
  To("a.mtx", Write("one.csv", "1,1,4\n2,3,5\n"), {.base = 1});
  EXPECT_EQ(Loaded("a.mtx"), "2 x 3: 1,1=4 2,3=5");

  EXPECT_CONTAINS(Failure("b.mtx", Path("zero.txt")), "zero.txt, line 1: a row of 1 to 2147483647 expected");
  EXPECT_CONTAINS(Failure("b.mtx", Path("a.mtx"), {.base = 0}), "2 --base says where");
}

TEST_F(Convert, MalformedTextIsNamedWithItsLine) {
  auto const failure = [&](std::string const& text, Request const& request = {}) {
    return Failure("out.mtx", Write("in", text), request);
  };

  EXPECT_CONTAINS(failure("0,0,1\n0,-1,1\n"),
                  "in, line 2: a column of 0 to 2147483646 expected, found \"-1\"");
  EXPECT_CONTAINS(failure("0,0,1\n0,1\n"), "line 2: row,column,value expected, found \"0,1\"");
  EXPECT_CONTAINS(failure("0 0 1\n0 1 1 1\n", {.base = 0}), "line 2: row column value expected");
  EXPECT_CONTAINS(failure("1,1,1,1,2\n1,0,1,1,2\n"), "line 2: a degree of freedom of 1 to 100 expected");
  EXPECT_CONTAINS(failure("1,4,1,1,2\n", {.dofsPerNode = 3}), "line 1: a degree of freedom of 1 to 3");
  EXPECT_CONTAINS(failure("1,1,1,1,2\n1,1,1,0,2\n"), "line 2: a degree of freedom as in the lines before");
  EXPECT_CONTAINS(failure("1,1,1,0,2\n1,1,1,1,2\n"), "line 2: 0 as in the lines before expected");
}

TEST_F(Convert, AFailureLeavesTheOldTargetAndNothingElse) {
  std::string const rectangle = Write("rectangle.txt", "1 2 5\n");
  Write("old.chk", "old");
  Write("old.mtx", "old");

  EXPECT_NE(Failure("old.chk", rectangle), "no error");
  EXPECT_NE(Failure("old.mtx", Write("bad.csv", "0,0,x\n")), "no error");
  EXPECT_NE(Failure("old.mtx", Path("missing")), "no error");

  EXPECT_EQ(m_folder.Read("old.chk"), "old");
  EXPECT_EQ(m_folder.Read("old.mtx"), "old");
  auto const files = std::filesystem::directory_iterator(Path(""));
  EXPECT_EQ(std::distance(begin(files), end(files)), 4);
}

TEST_F(Convert, ReplacesALongerFileWithoutATail) {
  std::string const path = Write("a.bin", std::string(10000, 'x'));
  ASSERT_EQ(chmod(path.c_str(), 0640), 0);
  std::filesystem::create_symlink("a.bin", Path("link.bin"));

  To("link.bin", Write("a.txt", "1 1 2.5\n"));

  EXPECT_TRUE(std::filesystem::is_symlink(Path("link.bin")));
  EXPECT_EQ(m_folder.Read("a.bin"), Raw<int>({1, 1, 1, 1}) + Raw<double>({2.5}));
  struct stat status {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0640U);
}

TEST_F(Convert, WritesIntoAFileThatHasLostItsName) {
  int const file = open(Write("gone", "").c_str(), O_RDWR);
  std::filesystem::remove(Path("gone"));

  orx::tool::ReplacedFile target("/proc/self/fd/" + std::to_string(file));
  target.WriteWith([](std::string const& path) { std::ofstream(path) << "text"; });
  target.ReplaceTarget();

  char text[4] = {};
  EXPECT_EQ(pread(file, text, 4, 0), 4);
  EXPECT_EQ(std::string(text, 4), "text");
  EXPECT_EQ(m_folder.Files(), std::set<std::string>{});
  close(file);
}

TEST_F(Convert, TheTargetMayBeTheSource) {
  EXPECT_EQ(To("a.txt", Write("a.txt", "1 1 1\n2 1 3\n"), {.triangle = "upper"}),
            "1 1 1.000000000000000e+00\n1 2 3.000000000000000e+00\n");
}

TEST_F(Convert, SaysWhatTextCannotHold) {
  std::string const source = Write("a.mtx", General("5 4 1\n3 2 1\n"));

  EXPECT_CONTAINS(Say("a.txt", source), "note: the last entries lie in row 3 and column 2");
  EXPECT_EQ(Say("a.bin", source),
            source + ": 5 x 4, 1 entry, Matrix Market, coordinate\n" + Path("a.bin") + ": dense binary\n");
}

TEST_F(Convert, WarnsOfADiagonalThatProductsPassOver) {
  std::string const diagonal = Write("diagonal.txt", "1 1 4\n2 2 5\n");
  for (char const* type : {"fortran", "blocks", "chunks"})
    EXPECT_CONTAINS(Say("d.bin", diagonal, {.to = type}), "note: the matrix has a diagonal only;");
  EXPECT_EQ(Say("d.mtx", diagonal).find("diagonal only"), std::string::npos);
  EXPECT_EQ(Say("s.bin", Write("s.txt", symmetricText), {.to = "fortran"}).find("diagonal only"),
            std::string::npos);
}

TEST_F(Convert, ChunksCannotHoldAMultipleOfTheirLength) {
  // The last chunk of such a file is written empty, so that its entries are lost.
  std::vector<Entry> entries{{0, 0, 1.0}};
  for (std::uint32_t i = 1; i <= 131072; ++i)
    entries.insert(entries.end(), {{i, i, 1.0}, {i, 0, 2.0}, {0, i, 2.0}});
  auto const arrow = Assembled(entries);
  std::string const blocks = Path("a.blk");
  orx::tool::SaveMatrix(blocks, arrow, {.kind = FileKind::Blocks});

  EXPECT_CONTAINS(Failure("a.chk", blocks), "3 a chunked file loses the last 131072 of 131072 entries");
  ORXSrvSparseMatrix matrix(0, 0);
  matrix.Import(blocks.c_str(), 1);
  matrix.Export(Path("b.chk").c_str(), 6, nullptr);
  EXPECT_EQ(orx::tool::CandidateKinds(Path("b.chk")), std::vector{FileKind::Chunks});
  EXPECT_CONTAINS(Failure("b.mtx", Path("b.chk")), "1 '" + Path("b.chk") + "': the last chunk is empty");
}

TEST_F(Convert, WrongUsageOfTheProgramIsExitCode2) {
  std::string const in = Write("a.txt", symmetricText);

  EXPECT_EQ(RunTool("convert '" + in + "' '" + Path("a.mtx") + "'").exitCode, 0);
  RunResult const unknown = RunTool("convert '" + in + "' '" + Path("a.xyz") + "'");
  EXPECT_EQ(unknown.exitCode, 2);
  EXPECT_CONTAINS(unknown.err, "'.xyz', which names no file type; expected one of .txt, .csv");
  RunResult const type = RunTool("convert --to xyz '" + in + "' '" + Path("a.xyz") + "'");
  EXPECT_EQ(type.exitCode, 2);
  EXPECT_CONTAINS(type.err, "no file type 'xyz'; expected one of triplets, commas");
  EXPECT_EQ(RunTool("convert --base 2 '" + in + "' '" + Path("a.mtx") + "'").exitCode, 2);
  EXPECT_EQ(RunTool("convert --triangle left '" + in + "' '" + Path("a.mtx") + "'").exitCode, 2);
  EXPECT_CONTAINS(RunTool("convert --help").out, "chunks     .chk  chunked binary, symmetric");
}

} // namespace
