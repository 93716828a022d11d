// orxmtx: what is in a matrix file or a database file, conversion and comparison of matrix files, and the
// natural frequencies of a pair of matrices.

#include "tools/commands/CommandLine.h"
#include "tools/commands/Database.h"
#include "tools/commands/Info.h"
#include "tools/commands/Perform.h"
#include "tools/formats/OutputFile.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <exception>
#include <string>

namespace {

using namespace orx::tool;

std::string FooterText() {
  return ExitCodesText() +
         "orxmtx check ends with 1 when something is wrong with a model, too.\n"
         "orxmtx cmp ends with 0 for equal, 1 for different matrices, and 2 for any error.\n"
         "\n" +
         MatrixFilesText();
}

/// 0 equal, 1 different, 2 any error, as scripts expect of comparisons.
int PerformComparison(CompareOptions const& options) {
  bool isEqual = false;
  int const code = Perform([&] {
    Comparison const comparison = CompareFiles(options.pathA, options.pathB, options.tolerances);
    isEqual = comparison.isEqual;
    PrintOut(comparison.text);
  });
  if (code != 0) return 2;
  return isEqual ? 0 : 1;
}

/// 0 nothing wrong, 1 something is.
int PerformCheck(CheckOptions const& options) {
  bool isSound = false;
  int const code = Perform([&] {
    CheckResult const result = CheckModel(options);
    isSound = result.isSound;
    PrintOut(result.text);
  });
  return code == 0 && !isSound ? 1 : code;
}

int Run(int argc, char** argv) {
  CLI::App app("Matrices of finite-element models: what files hold, conversion, and natural frequencies.",
               "orxmtx");
  app.set_version_flag("--version", std::string("orxmtx ") + ORXMTX_VERSION);
  app.require_subcommand(1);
  app.footer(FooterText());
  std::string infoPath;
  std::string databasePath;
  ModesOptions modesOptions;
  SolveOptions solveOptions;
  CheckOptions checkOptions;
  ConvertOptions convertOptions;
  SpyOptions spyOptions;
  CompareOptions compareOptions;
  AddInfo(app, infoPath);
  AddDatabase(app, databasePath);
  AddConvert(app, convertOptions);
  AddSpy(app, spyOptions);
  AddCompare(app, compareOptions);
  AddModes(app, modesOptions);
  AddSolve(app, solveOptions);
  AddCheck(app, checkOptions);
  std::string const help = Parse(app, argc, argv);
  if (!help.empty()) {
    PrintOut(help);
    return 0;
  }
  if (app.got_subcommand("info")) return Perform([&] { PrintOut(InfoText(infoPath)); });
  if (app.got_subcommand("db")) return Perform([&] { PrintOut(DatabaseText(databasePath)); });
  if (app.got_subcommand("convert"))
    return Perform([&] { PrintBeside(convertOptions.outPath)(ConvertText(convertOptions)); });
  if (app.got_subcommand("spy"))
    return Perform([&] { PrintBeside(spyOptions.pngPath)(SpyText(spyOptions)); });
  if (app.got_subcommand("cmp")) return PerformComparison(compareOptions);
  if (app.got_subcommand("check")) return PerformCheck(checkOptions);
  if (app.got_subcommand("solve")) {
    bool const isOutPrinted = solveOptions.outPath == "-" || solveOptions.reactionsPath == "-";
    return Perform([&] { PrintSolution(solveOptions, PrintBeside(isOutPrinted ? "-" : "")); });
  }
  return Perform([&] { PrintModes(modesOptions, PrintBeside(modesOptions.shapesPath)); });
}

} // namespace

int main(int argc, char** argv) {
  // Writing to a pipe that nobody reads, or beyond the limit of file sizes, is an error of the call.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  try {
    int const code = Run(argc, argv);
    EndIfReaderIsGone();
    return code;
  } catch (ToolError const& e) {
    return Fail(e.Code(), e.what());
  } catch (std::exception const& e) {
    return Fail(ExitCode::Failure, e.what());
  }
}
