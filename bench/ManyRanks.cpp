#include "bench/Claims.h"
#include "bench/ElasticBlock.h"
#include "bench/TemporaryFolder.h"

#include "sim/ORXSimCollection.h"
#include "sim/ORXSimContext.h"
#include "sim/ORXSimDatabase.h"
#include "sim/ORXSimTransaction.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

// orxmtx-mpi on one and two ranks, beside orxmtx, and beside SLEPc with PETSc's own files.

namespace bench {
namespace {

constexpr int rounds = 3;
constexpr int modes = 20;
constexpr char speedUp[] = "20 modes of 92,610 unknowns: time on 1 rank / on 2 ranks";
constexpr char againstSlepc[] =
    "20 modes of 92,610 unknowns, certified, 2 ranks: time with reading / SLEPc, which certifies nothing";
constexpr char againstTool[] = "20 modes of 92,610 unknowns, 1 rank: time / orxmtx modes";
constexpr char reading[] = "reading K and M, 2 ranks, with all checks: speed / pread of the bytes";
constexpr char readingCold[] =
    "reading K and M from a file that is not in memory, 2 ranks, with all checks: speed / pread of the bytes";
constexpr char making[] = "reading K and M into PETSc's matrices, 2 ranks: speed / pread of the bytes";
constexpr char memory[] = "reading K, 2 ranks: memory of a rank beyond 1.3 of its share";

/// Numbers in the byte order of PETSc's files.
template<class T>
void WriteReversed(std::ofstream& file, T value) {
  auto bytes = std::bit_cast<std::array<char, sizeof value>>(value);
  std::ranges::reverse(bytes);
  file.write(bytes.data(), bytes.size());
}

void WriteForPetsc(std::string const& path, ORXSrvSparseMatrix const& matrix) {
  orx::CompressedRowsView const rows = matrix.View();
  std::ofstream file(path, std::ios::binary);
  constexpr std::int32_t mark = 1211216;
  for (std::int32_t const number : {mark, rows.rows, rows.columns, rows.Entries()})
    WriteReversed(file, number);
  for (int i = 0; i < rows.rows; ++i)
    WriteReversed(file, rows.Length(i));
  std::for_each_n(rows.columnIndices, rows.Entries(), [&](std::uint32_t j) { WriteReversed(file, j); });
  std::for_each_n(rows.values, rows.Entries(), [&](double value) { WriteReversed(file, value); });
}

void WriteDatabase(std::string const& path, ORXSrvSparseMatrix const& k, ORXSrvSparseMatrix const& m) {
  ORXSimDatabase database;
  database.CreateFile(ORXUnicodeString(path.c_str()), 0, -1);
  ORXSimContextID const id = database.CreateContext({});
  ORXSimContext const context(id);
  ORXSimTransaction transaction(id);
  ORXSimArray<ORXSimCollectionID> sides;
  for (int side = 0; side < 2; ++side)
    sides.Append(context.CreateCollection(k.NumberOfRows(), ORXSimTypeID()));
  for (auto const& [type, matrix] : {std::pair{"K", &k}, std::pair{"M", &m}})
    matrix->Export(ORXSimCollection(sides[0]).BiggestCSetID(), ORXSimCollection(sides[1]).BiggestCSetID(),
                   context.CreateDistribution(ORXSimGrid(sides), ORXSimRangeType(ORXSimTypeKey::Double),
                                              ORXSimTypeID{context.DefineType(type)}));
  transaction.Commit();
  database.Close();
}

struct Model {
  TemporaryFolder folder;
  int order = 0;

  Model() {
    ElasticBlock const block(70, 20, 20, true);
    order = block.Order();
    ORXSrvSparseMatrix const stiffness = block.Stiffness(), mass = block.Mass();
    WriteDatabase(PathOf("model.sim"), stiffness, mass);
    WriteForPetsc(PathOf("K.petsc"), stiffness);
    WriteForPetsc(PathOf("M.petsc"), mass);
  }
  std::string PathOf(std::string const& name) const { return folder.Path() + "/" + name; }
};

std::string OnRanks(int ranks, std::string const& program) {
  return Format("OMPI_ALLOW_RUN_AS_ROOT=1 OMPI_ALLOW_RUN_AS_ROOT_CONFIRM=1 mpirun --oversubscribe -n %d ",
                ranks) +
         program;
}

struct Found {
  double seconds, last;
};

/// The whole program, from its start to its end.
Found FindModes(std::string const& program, Model const& model) {
  double const start = Now();
  auto const lines =
      RunProgram(program + " modes '" + model.PathOf("model.sim") + "' -n " + std::to_string(modes) +
                 " | awk '!/^#/ { last = $3 } END { print \"last\", last }'");
  return {Now() - start, Number(lines, "last")};
}

Found FindModesBySlepc(Model const& model) {
  double const start = Now();
  auto const lines = RunProgram(OnRanks(2, ORX_BENCH_SLEPC) + " '" + model.PathOf("K.petsc") + "' '" +
                                model.PathOf("M.petsc") + "' " + std::to_string(modes));
  return {Now() - start, Number(lines, "last")};
}

void CompareModes(Report& report, Model const& model) {
  std::vector<double> toTwo, toSlepc, toTool, one, two, slepc, tool;
  for (int round = 0; round < rounds; ++round) {
    Found const ofTool = FindModes(ORX_BENCH_ORXMTX, model);
    Found const onOne = FindModes(OnRanks(1, ORX_BENCH_ORXMTX_MPI), model);
    Found const onTwo = FindModes(OnRanks(2, ORX_BENCH_ORXMTX_MPI), model);
    Found const bySlepc = FindModesBySlepc(model);
    for (Found const& other : {onOne, onTwo, bySlepc})
      RequireAgreement(std::abs(other.last - ofTool.last) <= 1e-8 * ofTool.last, "the last eigenvalue");
    toTwo.push_back(onOne.seconds / onTwo.seconds);
    toSlepc.push_back(onTwo.seconds / bySlepc.seconds);
    toTool.push_back(onOne.seconds / ofTool.seconds);
    one.push_back(onOne.seconds), two.push_back(onTwo.seconds);
    slepc.push_back(bySlepc.seconds), tool.push_back(ofTool.seconds);
  }
  auto const figures = [](std::vector<double> const& a, std::vector<double> const& b) {
    return Format("%.1f : %.1f s", Median(a), Median(b));
  };
  report.Line(speedUp, figures(one, two), Median(toTwo), "", AtLeast(1.6));
  report.Line(againstSlepc, figures(two, slepc), Median(toSlepc), "", AtMost(1.05));
  report.Line(againstTool, figures(one, tool), Median(toTool), "", {});
}

void CompareReading(Report& report, Model const& model) {
  auto const lines = RunProgram(OnRanks(2, ORX_BENCH_ROWS_ON_RANKS) +
                                Format(" '%s' %d", model.PathOf("model.sim").c_str(), model.order));
  double const raw = Number(lines, "raw"), rows = Number(lines, "rows"), matrices = Number(lines, "matrices");
  report.Line(reading, Format("%.3f : %.3f s", rows, raw), raw / rows, "", AtLeast(0.8));
  double const coldRaw = Number(lines, "cold_raw"), coldRows = Number(lines, "cold_rows");
  report.Line(readingCold, Format("%.3f : %.3f s", coldRows, coldRaw), coldRaw / coldRows, "", AtLeast(0.8));
  report.Line(making, Format("%.3f : %.3f s", matrices, raw), raw / matrices, "", {});
  report.Line(memory, "the worst of 7 rounds", Number(lines, "excess") * 1e-6, " MB", AtMost(64));
}

} // namespace

void ClaimManyRanks(Report& report) {
  auto const isWanted = [&](std::initializer_list<char const*> claims) {
    return std::ranges::any_of(claims, [&](char const* claim) { return report.Wants(claim); });
  };
  bool const areModesWanted = isWanted({speedUp, againstSlepc, againstTool});
  bool const isReadingWanted = isWanted({reading, readingCold, making, memory});
  if (!areModesWanted && !isReadingWanted) return;
  if (*ORX_BENCH_ORXMTX_MPI == '\0') return report.Absent(speedUp, "SLEPc");
  report.Try(speedUp, [&] {
    Model const model;
    if (isReadingWanted) CompareReading(report, model);
    if (areModesWanted) CompareModes(report, model);
  });
}

} // namespace bench
