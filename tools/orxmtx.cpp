// orxmtx: what is in a matrix file or a database file, and the natural frequencies of a pair of matrices.

#include "tools/Database.h"
#include "tools/Info.h"
#include "tools/Modes.h"
#include "tools/ToolError.h"

#include "core/ORXBasException.h"
#include "core/mem_Allocator.h"
#include "module/ORXSrvLinearAlgebra.h"
#include "mtx/ORXSrvMtxOpenFileException.h"

#include <CLI/CLI.hpp>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <exception>
#include <functional>
#include <new>
#include <string>

namespace {

using tool::ExitCode;
using tool::ToolError;

constexpr char footer[] =
    "Exit codes:\n"
    "  0  done\n"
    "  1  an input file cannot be used: missing, malformed, not symmetric, not square\n"
    "  2  wrong usage of the command line\n"
    "  3  the work failed: no convergence, no definite combination of K and M, out of\n"
    "     memory, output not written\n"
    "\n"
    "Matrix files are text: one item \"row column value\" per entry, indices from 1, blanks\n"
    "and line ends between them; values at one position are summed.";

int Fail(ExitCode code, std::string const& message) {
  std::fprintf(stderr, "orxmtx: %s\n", message.c_str());
  return static_cast<int>(code);
}

void Print(std::string const& text) {
  bool const written = std::fputs(text.c_str(), stdout) >= 0 && std::fflush(stdout) == 0;
  if (!written) throw ToolError(ExitCode::Failure, std::string("standard output: ") + std::strerror(errno));
}

int Perform(std::function<std::string()> const& work) {
  try {
    ORXSrvLinearAlgebraSession const session;
    Print(work());
    return static_cast<int>(ExitCode::Success);
  } catch (ToolError const& e) {
    return Fail(e.Code(), e.what());
  } catch (ORXSrvMtxOpenFileException const& e) {
    return Fail(ExitCode::UnusableInput, e.AsString().AsText());
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

void AddModes(CLI::App& app, tool::ModesOptions& options) {
  CLI::App* const modes = app.add_subcommand("modes", "Lowest natural frequencies: K x = lambda M x");
  modes->add_option("K", options.stiffnessPath, "stiffness matrix, both triangles or one")
      ->required()
      ->type_name("FILE");
  modes->add_option("M", options.massPath, "mass matrix, both triangles or one")
      ->required()
      ->type_name("FILE");
  modes->add_option("-n,--count", options.count, "how many modes")
      ->capture_default_str()
      ->type_name("COUNT")
      ->check(CLI::Range(1, INT_MAX).description(""));
  modes->add_option("--shapes", options.shapesPath, "write the mode shapes to this file: row, mode, value")
      ->type_name("FILE")
      ->check([](std::string const& path) { return path.empty() ? "empty file name" : ""; });
}

int Run(int argc, char** argv) {
  CLI::App app("Matrices of finite-element models: what a file holds, and natural frequencies.", "orxmtx");
  app.set_version_flag("--version", std::string("orxmtx ") + ORXMTX_VERSION);
  app.require_subcommand(1);
  app.footer(footer);
  std::string infoPath;
  std::string databasePath;
  tool::ModesOptions modesOptions;
  AddInfo(app, infoPath);
  AddDatabase(app, databasePath);
  AddModes(app, modesOptions);
  try {
    app.parse(argc, argv);
  } catch (CLI::Success const& help) {
    return app.exit(help);
  } catch (CLI::ParseError const& e) {
    return Fail(ExitCode::WrongUsage, std::string(e.what()) + "; see orxmtx --help");
  }
  if (app.got_subcommand("info")) return Perform([&] { return tool::InfoText(infoPath); });
  if (app.got_subcommand("db")) return Perform([&] { return tool::DatabaseText(databasePath); });
  return Perform([&] { return tool::ModesText(modesOptions); });
}

} // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (std::exception const& e) {
    return Fail(ExitCode::Failure, e.what());
  }
}
