// orxmtx: what is in a matrix file or a database file, conversion and comparison of matrix files, and the
// natural frequencies of a pair of matrices.

#include "tools/commands/Check.h"
#include "tools/commands/Compare.h"
#include "tools/commands/Convert.h"
#include "tools/commands/Database.h"
#include "tools/commands/Info.h"
#include "tools/commands/Modes.h"
#include "tools/commands/Solve.h"
#include "tools/commands/Spy.h"
#include "tools/formats/OutputFile.h"
#include "tools/terminal/ToolError.h"

#include "core/ORXBasException.h"
#include "core/mem_Allocator.h"
#include "module/ORXSrvLinearAlgebra.h"

#include <CLI/CLI.hpp>

#include <cfloat>
#include <climits>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <exception>
#include <functional>
#include <new>
#include <string>

namespace {

using orx::tool::ExitCode;
using orx::tool::ToolError;

constexpr char footer[] =
    "Exit codes:\n"
    "  0  done\n"
    "  1  an input file cannot be used: missing, malformed, not symmetric, not square\n"
    "  2  wrong usage of the command line\n"
    "  3  the work failed: no convergence, no definite combination of K and M, K singular,\n"
    "     out of memory, output not written\n"
    "\n"
    "orxmtx check ends with 1 when something is wrong with a model, too.\n"
    "orxmtx cmp ends with 0 for equal, 1 for different matrices, and 2 for any error.\n"
    "\n"
    "Matrix files are of any type that orxmtx convert --help lists; which one is seen\n"
    "from their content. In text, values at one position are summed. \"-\" is standard\n"
    "input, or standard output: what is said besides then goes to standard error.";

int Fail(ExitCode code, std::string const& message) {
  std::fprintf(stderr, "orxmtx: %s\n", message.c_str());
  return static_cast<int>(code);
}

using Print = std::function<void(std::string const&)>;

void PrintError(std::string const& text) { std::fputs(text.c_str(), stderr); }

/// Where what a command says goes, when what it makes may go to standard output.
Print PrintBeside(std::string const& outPath) {
  return outPath == "-" ? Print(PrintError) : Print(orx::tool::PrintOut);
}

int Perform(std::function<void()> const& work) {
  try {
    ORXSrvLinearAlgebraSession const session;
    work();
    return static_cast<int>(ExitCode::Success);
  } catch (ToolError const& e) {
    return Fail(e.Code(), e.what());
  } catch (ORXBasException const& e) {
    return Fail(ExitCode::Failure, e.AsString().AsText());
  } catch (mem_OutOfMemory const& e) {
    return Fail(ExitCode::Failure, e.what());
  } catch (std::bad_alloc const&) {
    return Fail(ExitCode::Failure, "out of memory");
  } catch (std::exception const& e) {
    return Fail(ExitCode::Failure, e.what());
  }
}

void AddInfo(CLI::App& app, std::string& path) {
  CLI::App* const info = app.add_subcommand("info", "Say what a matrix file holds: shape, symmetry, norms");
  info->add_option("FILE", path, "matrix file")->required()->type_name("");
}

void AddDatabase(CLI::App& app, std::string& path) {
  CLI::App* const db =
      app.add_subcommand("db", "Say what a database file holds: distributions, shapes, bytes");
  db->add_option("FILE", path, "database file")->required()->type_name("");
}

std::string ConvertFooter() {
  return "Types, and the extensions of OUT that stand for them:\n" + orx::tool::FileKindsText() +
         "\n"
         "--triangle takes IN for a symmetric matrix, which holds one triangle, or both that agree\n"
         "to rounding and are averaged. OUT gets that part of it; types for symmetric matrices\n"
         "stand for both triangles all the same. Without it entries are taken as they are; types\n"
         "for symmetric matrices are then written of exactly symmetric ones only.\n"
         "--dofs-per-node: unknown k is degree of freedom (k-1) % N + 1 of node (k-1) / N + 1. It\n"
         "is needed to write; to read, N is else the largest degree of freedom in the file.\n"
         "\n"
         "Matrix Market files come out symmetric or skew-symmetric where the matrix is, general\n"
         "with --triangle full. The first three types keep 16 digits of a value, all with\n"
         "--digits 17; the others keep all.\n"
         "Values up to 1e-16 of a dense file are read as zeros. Text without a header ends with\n"
         "its largest row and column. OUT may be IN: it is replaced as a whole, when complete.";
}

void AddConvert(CLI::App& app, orx::tool::ConvertOptions& options) {
  CLI::App* const convert = app.add_subcommand("convert", "Write a matrix file as one of another type");
  convert->add_option("IN", options.inPath, "matrix file")->required()->type_name("");
  convert->add_option("OUT", options.outPath, "the file to write")->required()->type_name("");
  convert->add_option("--from", options.from, "type of IN; else seen from its content")->type_name("TYPE");
  convert->add_option("--to", options.to, "type of OUT; else by its extension")->type_name("TYPE");
  convert->add_option("--triangle", options.triangle, "lower, upper or full, of a symmetric matrix")
      ->type_name("PART")
      ->check(CLI::IsMember({"lower", "upper", "full"}).description(""));
  convert->add_option("--base", options.base, "0 or 1: first index of IN; else 1 of triplets, 0 of commas")
      ->type_name("BASE")
      ->check(CLI::IsMember({0, 1}).description(""));
  convert->add_option("--dofs-per-node", options.dofsPerNode, "of text by nodes")
      ->type_name("N")
      ->check(CLI::Range(1, 1000000).description(""));
  convert->add_option("--digits", options.digits, "16 or 17, of values in text without a header")
      ->capture_default_str()
      ->type_name("COUNT")
      ->check(CLI::IsMember({16, 17}).description(""));
  convert->add_flag("--yes", options.isLargeAllowed, "write a file of gigabytes that are nearly all zeros");
  convert->footer(ConvertFooter());
}

void AddSpy(CLI::App& app, orx::tool::SpyOptions& options) {
  CLI::App* const spy = app.add_subcommand("spy", "Draw where a matrix has entries");
  spy->add_option("FILE", options.path, "matrix file")->required()->type_name("");
  spy->add_flag("--ascii", options.isAscii, "characters . : + * # by density instead of braille dots");
  spy->add_option("--width", options.width, "characters a line; else of the terminal, or 80")
      ->type_name("COUNT")
      ->check(CLI::Range(4, 10000).description(""));
  spy->add_option("--png", options.pngPath, "draw into this file instead, in greys by density")
      ->type_name("FILE")
      ->check([](std::string const& path) { return path.empty() ? "empty file name" : ""; });
  spy->add_option("--png-size", options.pngSize, "pixels of the longer side at most")
      ->capture_default_str()
      ->type_name("COUNT")
      ->check(CLI::Range(16, 16384).description(""));
}

struct CompareOptions {
  std::string pathA;
  std::string pathB;
  orx::tool::Tolerances tolerances;
};

void AddCompare(CLI::App& app, CompareOptions& options) {
  CLI::App* const cmp = app.add_subcommand("cmp", "Say how two matrix files differ");
  cmp->add_option("A", options.pathA, "matrix file")->required()->type_name("");
  cmp->add_option("B", options.pathB, "matrix file, of any type")->required()->type_name("");
  cmp->add_option("--tolerance", options.tolerances.relative,
                  "equal are values with |a - b| <= REL max(|a|, |b|); what is not stored is 0")
      ->capture_default_str()
      ->type_name("REL")
      ->check(CLI::Range(0.0, 2.0).description(""));
  cmp->add_option("--absolute", options.tolerances.absolute, "equal are values with |a - b| <= ABS too")
      ->capture_default_str()
      ->type_name("ABS")
      ->check(CLI::Range(0.0, DBL_MAX).description(""));
  cmp->footer("Exit codes: 0 equal, 1 different, 2 any error");
}

/// 0 equal, 1 different, 2 any error, as scripts expect of comparisons.
int PerformComparison(CompareOptions const& options) {
  bool isEqual = false;
  int const code = Perform([&] {
    orx::tool::Comparison const comparison =
        orx::tool::CompareFiles(options.pathA, options.pathB, options.tolerances);
    isEqual = comparison.isEqual;
    orx::tool::PrintOut(comparison.text);
  });
  if (code != 0) return 2;
  return isEqual ? 0 : 1;
}

void AddBudget(CLI::App& command, std::int64_t& bytes, std::string const& what) {
  command.add_option("--budget", bytes, what + ", such as 8GB; what needs more is kept on disk")
      ->type_name("BYTES")
      ->transform(CLI::AsSizeValue(true));
}

void AddModes(CLI::App& app, orx::tool::ModesOptions& options) {
  CLI::App* const modes = app.add_subcommand("modes", "Lowest natural frequencies: K x = lambda M x");
  modes->add_option("K", options.stiffnessPath, "stiffness matrix, both triangles or one")
      ->required()
      ->type_name("FILE");
  modes->add_option("M", options.massPath, "mass matrix, both triangles or one")
      ->required()
      ->type_name("FILE");
  modes->add_option("-n,--count", options.choice.count, "how many modes")
      ->capture_default_str()
      ->type_name("COUNT")
      ->check(CLI::Range(1, INT_MAX).description(""));
  auto const finite = [](std::string const& text) {
    double value = 0.0;
    bool const isNumber = CLI::detail::lexical_cast(text, value) && std::isfinite(value);
    return isNumber ? std::string() : "'" + text + "' is not a frequency";
  };
  auto* const near = modes->add_option("--near", options.choice.near, "the modes nearest to this frequency")
                         ->type_name("HZ")
                         ->check(finite);
  modes->add_option("--interval", options.choice.interval, "all modes between two frequencies")
      ->type_name("HZ HZ")
      ->check(finite)
      ->excludes(near);
  AddBudget(*modes, options.choice.memory, "memory for factorization and basis");
  modes->add_flag("--explain", options.explains, "say first what the factorization takes");
  modes
      ->add_option("--shapes", options.shapesPath,
                   "write the mode shapes to this .txt, .csv, .mtx or .bin file, or .sim or .h5 database")
      ->type_name("FILE")
      ->check([](std::string const& path) { return path.empty() ? "empty file name" : ""; });
}

std::string EmptyNameFault(std::string const& path) { return path.empty() ? "empty file name" : ""; }

void AddSolve(CLI::App& app, orx::tool::SolveOptions& options) {
  CLI::App* const solve = app.add_subcommand("solve", "Displacements under loads: K u = f");
  solve->add_option("K", options.stiffnessPath, "stiffness matrix, both triangles or one; unsymmetric too")
      ->required()
      ->type_name("FILE");
  solve
      ->add_option("F", options.loadsPath,
                   "loads: a matrix file with a column for each load, or a value for each line")
      ->required()
      ->type_name("FILE");
  solve
      ->add_option(
          "OUT", options.outPath,
          "write the displacements to this .txt, .csv, .mtx or .bin file, or .sim or .h5 database; else they "
          "are printed")
      ->type_name("FILE")
      ->check(EmptyNameFault);
  solve
      ->add_option("--fix", options.heldPath,
                   "file of the unknowns that are held, from 1; 7=0.5 moves unknown 7 to 0.5; # comments")
      ->type_name("FILE")
      ->check(EmptyNameFault);
  solve
      ->add_option("--reactions", options.reactionsPath,
                   "write K u - f at the held unknowns to this file; else they are printed")
      ->type_name("FILE")
      ->check(EmptyNameFault);
  AddBudget(*solve, options.memory, "memory for the factorization");
  solve->add_flag("--explain", options.explains, "say first what the factorization takes");
}

void AddCheck(CLI::App& app, orx::tool::CheckOptions& options) {
  CLI::App* const check = app.add_subcommand("check", "Say what is wrong with the matrices of a model");
  check->add_option("K", options.stiffnessPath, "stiffness matrix, both triangles or one")
      ->required()
      ->type_name("FILE");
  check->add_option("M", options.massPath, "mass matrix, both triangles or one")
      ->type_name("FILE")
      ->check(EmptyNameFault);
  check
      ->add_option(
          "--coordinates", options.coordinatesPath,
          "file with lines \"x y z\", one for each node of 3 or 6 unknowns: tells rigid motions from "
          "mechanisms, and sums the mass")
      ->type_name("FILE")
      ->check(EmptyNameFault);
  AddBudget(*check, options.memory, "memory for the factorization");
  check->footer(
      "Exit codes: 0 nothing is wrong, 1 something is, or an input file cannot be used, 2 and 3 as of the\n"
      "other commands. Wrong are values that are not finite, unsymmetric matrices, unknowns without\n"
      "stiffness, negative diagonal entries, negative eigenvalues of K beyond those of Lagrange "
      "multipliers,\n"
      "more than six motions without stiffness or, with --coordinates, any that is not one of the whole "
      "rigid\n"
      "body, and a mass matrix without mass.");
}

/// 0 nothing wrong, 1 something is.
int PerformCheck(orx::tool::CheckOptions const& options) {
  bool isSound = false;
  int const code = Perform([&] {
    orx::tool::CheckResult const result = orx::tool::CheckModel(options);
    isSound = result.isSound;
    orx::tool::PrintOut(result.text);
  });
  return code == 0 && !isSound ? 1 : code;
}

/// The parser would only say that a command is missing.
void RequireCommand(CLI::App const& app, int argc, char** argv) {
  if (argc < 2 || argv[1][0] == '-') return;
  std::string known;
  for (CLI::App const* command : app.get_subcommands(nullptr)) {
    if (command->get_name() == argv[1]) return;
    known += (known.empty() ? "" : ", ") + command->get_name();
  }
  throw ToolError(ExitCode::WrongUsage,
                  "there is no command '" + std::string(argv[1]) + "'; expected one of " + known);
}

int Run(int argc, char** argv) {
  CLI::App app("Matrices of finite-element models: what files hold, conversion, and natural frequencies.",
               "orxmtx");
  app.set_version_flag("--version", std::string("orxmtx ") + ORXMTX_VERSION);
  app.require_subcommand(1);
  app.footer(footer);
  std::string infoPath;
  std::string databasePath;
  orx::tool::ModesOptions modesOptions;
  orx::tool::SolveOptions solveOptions;
  orx::tool::CheckOptions checkOptions;
  orx::tool::ConvertOptions convertOptions;
  orx::tool::SpyOptions spyOptions;
  CompareOptions compareOptions;
  AddInfo(app, infoPath);
  AddDatabase(app, databasePath);
  AddConvert(app, convertOptions);
  AddSpy(app, spyOptions);
  AddCompare(app, compareOptions);
  AddModes(app, modesOptions);
  AddSolve(app, solveOptions);
  AddCheck(app, checkOptions);
  try {
    RequireCommand(app, argc, argv);
    app.parse(argc, argv);
  } catch (ToolError const& e) {
    return Fail(e.Code(), e.what());
  } catch (CLI::Success const& help) {
    return app.exit(help);
  } catch (CLI::ParseError const& e) {
    return Fail(ExitCode::WrongUsage, std::string(e.what()) + "; see orxmtx --help");
  }
  using orx::tool::PrintOut;
  if (app.got_subcommand("info")) return Perform([&] { PrintOut(orx::tool::InfoText(infoPath)); });
  if (app.got_subcommand("db")) return Perform([&] { PrintOut(orx::tool::DatabaseText(databasePath)); });
  if (app.got_subcommand("convert"))
    return Perform([&] { PrintBeside(convertOptions.outPath)(orx::tool::ConvertText(convertOptions)); });
  if (app.got_subcommand("spy"))
    return Perform([&] { PrintBeside(spyOptions.pngPath)(orx::tool::SpyText(spyOptions)); });
  if (app.got_subcommand("cmp")) return PerformComparison(compareOptions);
  if (app.got_subcommand("check")) return PerformCheck(checkOptions);
  if (app.got_subcommand("solve")) {
    bool const isOutPrinted = solveOptions.outPath == "-" || solveOptions.reactionsPath == "-";
    return Perform([&] { orx::tool::PrintSolution(solveOptions, PrintBeside(isOutPrinted ? "-" : "")); });
  }
  return Perform([&] { orx::tool::PrintModes(modesOptions, PrintBeside(modesOptions.shapesPath)); });
}

} // namespace

int main(int argc, char** argv) {
  // Writing to a pipe that nobody reads, or beyond the limit of file sizes, is an error of the call.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  try {
    int const code = Run(argc, argv);
    orx::tool::EndIfReaderIsGone();
    return code;
  } catch (std::exception const& e) {
    return Fail(ExitCode::Failure, e.what());
  }
}
