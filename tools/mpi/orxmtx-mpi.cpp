// orxmtx-mpi: commands of orxmtx on many ranks, for matrices that one machine is not enough for.

#include "tools/mpi/DenseModes.h"
#include "tools/mpi/Info.h"
#include "tools/mpi/Modes.h"
#include "tools/mpi/Multiply.h"
#include "tools/mpi/Petsc.h"
#include "tools/mpi/Ranks.h"
#include "tools/mpi/Solve.h"

#include "tools/commands/CommandLine.h"
#include "tools/commands/Perform.h"
#include "tools/formats/OutputFile.h"
#include "tools/terminal/Program.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using namespace orx::tool;
using orx::mpi::Ranks;

std::string FooterText() {
  return ExitCodesText() +
         "The same commands, files and output as of orxmtx, on all ranks of mpirun:\n"
         "    mpirun -n 64 orxmtx-mpi modes model.sim\n"
         "Sparse matrices of databases are read by all ranks, each its rows; all else by one rank.\n"
         "What follows \"--\" are options of PETSc and SLEPc: -- -mat_mumps_icntl_14 80\n"
         "\n" +
         MatrixFilesText();
}

struct Options {
  std::string infoPath;
  orx::mpi::MultiplyOptions multiply;
  orx::mpi::ModesOptions modes;
  orx::mpi::SolveOptions solve;
  bool hasEventTable = false;
};

void AddMultiply(CLI::App& app, orx::mpi::MultiplyOptions& options) {
  CLI::App* const multiply = app.add_subcommand("multiply", "Product of two matrices of databases");
  multiply->add_option("A", options.a, "dense or sparse matrix of a database")->required()->type_name("FILE");
  multiply->add_option("B", options.b, "dense matrix of a database")->required()->type_name("FILE");
  multiply->add_option("OUT", options.out, "database to write the product to: .sim or .h5")
      ->required()
      ->type_name("FILE");
  multiply->add_flag("--transpose-a", options.isTransposed, "A^T B instead of A B");
}

void PrintOnRoot(Ranks const& ranks, std::string const& text) {
  ranks.OnRoot([&] { PrintOut(text); });
}

void PerformSolve(orx::mpi::SolveOptions const& options, Ranks const& ranks) {
  bool const isOutPrinted = options.outPath == "-" || options.reactionsPath == "-";
  orx::mpi::PrintSolution(options, ranks, PrintBeside(isOutPrinted ? "-" : ""));
}

void AddSolveOnRanks(CLI::App& app, orx::mpi::SolveOptions& options) {
  CLI::App* const solve = AddSolve(app, options);
  solve
      ->add_option("--solver", options.solver,
                   "direct: a factorization; cg: conjugate gradients with multigrid, "
                   "which takes less memory")
      ->capture_default_str()
      ->type_name("NAME")
      ->check(CLI::IsMember({"direct", "cg"}).description(""));
  solve
      ->add_option("--coordinates", options.coordinatesPath,
                   "file with lines \"x y z\", one for each node of 3 or 6 unknowns: makes cg fast")
      ->type_name("FILE")
      ->check(EmptyNameFault);
}

void AddModesOnRanks(CLI::App& app, orx::mpi::ModesOptions& options) {
  CLI::App* const modes = AddModes(app, options);
  modes
      ->add_option("--solver", options.solver,
                   "of sparse matrices. lanczos: the search of orxmtx; slepc: its Krylov-Schur, or what "
                   "-- -eps_type says, counted by inertia too")
      ->capture_default_str()
      ->type_name("NAME")
      ->check(CLI::IsMember({"lanczos", "slepc"}).description(""));
}

void PerformModes(orx::mpi::ModesOptions const& options, Ranks const& ranks) {
  Print const print = PrintBeside(options.shapesPath);
  if (orx::mpi::AreDense(options, ranks)) return orx::mpi::PrintDenseModes(options, ranks, print);
  orx::mpi::PrintModes(options, ranks, print);
}

/// All of the program, on each rank.
void Run(Ranks const& ranks, std::vector<char const*> const& arguments) {
  CLI::App app("Matrices of finite-element models on many ranks: what files hold, natural frequencies, "
               "displacements under loads.",
               "orxmtx-mpi");
  app.set_version_flag("--version", std::string("orxmtx-mpi ") + ORXMTX_VERSION);
  app.require_subcommand(1);
  app.footer(FooterText());
  Options options;
  AddInfo(app, options.infoPath);
  AddMultiply(app, options.multiply);
  AddModesOnRanks(app, options.modes);
  AddSolveOnRanks(app, options.solve);
  for (CLI::App* const command : app.get_subcommands(nullptr))
    command->add_flag("--log", options.hasEventTable,
                      "print PETSc's table of events at the end, on standard error");
  std::string help;
  ranks.OnEach([&] { help = Parse(app, static_cast<int>(arguments.size()), arguments.data()); });
  if (!help.empty()) return PrintOnRoot(ranks, help);

  if (options.hasEventTable) orx::mpi::BeginEventTable();
  if (app.got_subcommand("info")) PrintOnRoot(ranks, orx::mpi::InfoText(options.infoPath, ranks));
  if (app.got_subcommand("multiply")) PrintOnRoot(ranks, orx::mpi::MultiplyText(options.multiply, ranks));
  if (app.got_subcommand("modes")) PerformModes(options.modes, ranks);
  if (app.got_subcommand("solve")) PerformSolve(options.solve, ranks);
  if (options.hasEventTable) orx::mpi::PrintEventTable();
}

/// Prints the error once for all ranks. When they cannot end together, the others are killed.
int EndAfter(ToolError const& error, Ranks const& ranks) {
  int speaker = 0;
  bool const isTogether = ranks.Meet(speaker);
  auto const code = static_cast<int>(error.Code());
  if (!isTogether || speaker == ranks.Rank()) Fail(error.Code(), error.what());
  if (!isTogether) MPI_Abort(ranks.Communicator(), code);
  return code;
}

} // namespace

int main(int argc, char** argv) {
  // Writing to a pipe that nobody reads, or beyond the limit of file sizes, is an error of the call.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  SetProgramName("orxmtx-mpi");
  char** const end = argv + argc;
  char** const separator = std::find(argv, end, std::string_view("--"));
  std::vector<std::string> const petscOptions(separator == end ? end : separator + 1, end);
  try {
    orx::mpi::PetscSession const petsc(argv[0], petscOptions);
    int code = 0;
    {
      Ranks const ranks(PETSC_COMM_WORLD);
      auto const error = FailureOf([&] { Run(ranks, {argv, separator}); });
      if (error) code = EndAfter(*error, ranks);
    }
    EndIfReaderIsGone();
    return code;
  } catch (ToolError const& e) {
    return Fail(e.Code(), e.what());
  }
}
