#include "tools/commands/CommandLine.h"

#include "tools/terminal/Program.h"
#include "tools/terminal/ToolError.h"

#include <CLI/CLI.hpp>

#include <cfloat>
#include <climits>
#include <cmath>
#include <sstream>

namespace orx::tool {
namespace {

std::string ConvertFooter() {
  return "Types, and the extensions of OUT that stand for them:\n" + FileKindsText() +
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

void AddBudget(CLI::App& command, std::int64_t& bytes, std::string const& what) {
  command.add_option("--budget", bytes, what + ", such as 8GB; what needs more is kept on disk")
      ->type_name("BYTES")
      ->transform(CLI::AsSizeValue(true));
}

/// What is wrong with the text of a frequency; empty when nothing is.
std::string FrequencyFault(std::string const& text) {
  double value = 0.0;
  bool const isNumber = CLI::detail::lexical_cast(text, value) && std::isfinite(value);
  return isNumber ? std::string() : "'" + text + "' is not a frequency";
}

/// The parser would only say that a command is missing.
void RequireCommand(CLI::App const& app, int argc, char const* const* argv) {
  if (argc < 2 || argv[1][0] == '-') return;
  std::string known;
  for (CLI::App const* command : app.get_subcommands(nullptr)) {
    if (command->get_name() == argv[1]) return;
    known += (known.empty() ? "" : ", ") + command->get_name();
  }
  throw ToolError(ExitCode::WrongUsage,
                  "there is no command '" + std::string(argv[1]) + "'; expected one of " + known);
}

} // namespace

std::string EmptyNameFault(std::string const& name) { return name.empty() ? "empty file name" : ""; }

CLI::App* AddInfo(CLI::App& app, std::string& path) {
  CLI::App* const info = app.add_subcommand("info", "Say what a matrix file holds: shape, symmetry, norms");
  info->add_option("FILE", path, "matrix file")->required()->type_name("");
  return info;
}

CLI::App* AddDatabase(CLI::App& app, std::string& path) {
  CLI::App* const db =
      app.add_subcommand("db", "Say what a database file holds: distributions, shapes, bytes");
  db->add_option("FILE", path, "database file")->required()->type_name("");
  return db;
}

CLI::App* AddConvert(CLI::App& app, ConvertOptions& options) {
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
  return convert;
}

CLI::App* AddSpy(CLI::App& app, SpyOptions& options) {
  CLI::App* const spy = app.add_subcommand("spy", "Draw where a matrix has entries");
  spy->add_option("FILE", options.path, "matrix file")->required()->type_name("");
  spy->add_flag("--ascii", options.isAscii, "characters . : + * # by density instead of braille dots");
  spy->add_option("--width", options.width, "characters a line; else of the terminal, or 80")
      ->type_name("COUNT")
      ->check(CLI::Range(4, 10000).description(""));
  spy->add_option("--png", options.pngPath, "draw into this file instead, in greys by density")
      ->type_name("FILE")
      ->check(EmptyNameFault);
  spy->add_option("--png-size", options.pngSize, "pixels of the longer side at most")
      ->capture_default_str()
      ->type_name("COUNT")
      ->check(CLI::Range(16, 16384).description(""));
  return spy;
}

CLI::App* AddCompare(CLI::App& app, CompareOptions& options) {
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
  return cmp;
}

CLI::App* AddModes(CLI::App& app, ModesOptions& options) {
  CLI::App* const modes = app.add_subcommand("modes", "Lowest natural frequencies: K x = lambda M x");
  modes->add_option("K", options.stiffnessPath, "stiffness matrix, both triangles or one")
      ->required()
      ->type_name("FILE");
  modes
      ->add_option("M", options.massPath,
                   "mass matrix, both triangles or one; not needed where K is in a database that has M too")
      ->type_name("FILE")
      ->check(EmptyNameFault);
  modes->add_option("-n,--count", options.choice.count, "how many modes")
      ->capture_default_str()
      ->type_name("COUNT")
      ->check(CLI::Range(1, INT_MAX).description(""));
  auto* const near = modes->add_option("--near", options.choice.near, "the modes nearest to this frequency")
                         ->type_name("HZ")
                         ->check(FrequencyFault);
  modes->add_option("--interval", options.choice.interval, "all modes between two frequencies")
      ->type_name("HZ HZ")
      ->check(FrequencyFault)
      ->excludes(near);
  AddBudget(*modes, options.choice.memory, "memory for factorization and basis");
  modes->add_flag("--explain", options.explains, "say first what the factorization takes");
  modes
      ->add_option("--shapes", options.shapesPath,
                   "write the mode shapes to this .txt, .csv, .mtx or .bin file, or .sim or .h5 database")
      ->type_name("FILE")
      ->check(EmptyNameFault);
  return modes;
}

CLI::App* AddSolve(CLI::App& app, SolveOptions& options) {
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
  return solve;
}

CLI::App* AddCheck(CLI::App& app, CheckOptions& options) {
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
  return check;
}

std::string ExitCodesText() {
  return "Exit codes:\n"
         "  0  done\n"
         "  1  an input file cannot be used: missing, malformed, not symmetric, not square\n"
         "  2  wrong usage of the command line\n"
         "  3  the work failed: no convergence, no definite combination of K and M, K singular,\n"
         "     out of memory, output not written\n"
         "\n";
}

std::string MatrixFilesText() {
  return "Matrix files are of any type that orxmtx convert --help lists; which one is seen\n"
         "from their content. In text, values at one position are summed. A matrix of a database\n"
         "is named FILE:TYPE or FILE:CONTEXT/DISTRIBUTION, as orxmtx db lists them. \"-\" is standard\n"
         "input, or standard output: what is said besides then goes to standard error.";
}

std::string Parse(CLI::App& app, int argc, char const* const* argv) {
  try {
    RequireCommand(app, argc, argv);
    app.parse(argc, argv);
    return {};
  } catch (CLI::Success const& help) {
    std::ostringstream text;
    app.exit(help, text, text);
    return text.str();
  } catch (CLI::ParseError const& e) {
    throw ToolError(ExitCode::WrongUsage, std::string(e.what()) + "; see " + ProgramName() + " --help");
  }
}

} // namespace orx::tool
