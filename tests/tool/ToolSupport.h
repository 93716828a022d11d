#pragma once

#include "tests/support/FileBytes.h"
#include "tests/support/TemporaryFolder.h"
#include "tools/formats/MatrixFile.h"
#include "tools/numerics/Symmetry.h"
#include "tools/terminal/Text.h"
#include "tools/terminal/ToolError.h"

#include <gtest/gtest.h>

#include <sys/wait.h>

using Rows = std::initializer_list<std::initializer_list<double>>;

using Entry = ORXSrvSparseMatrixEntry;

/// A matrix of these entries; it may be larger than they need.
inline ORXSrvSparseMatrix Assembled(std::vector<Entry> const& entries, int rows = 0, int columns = 0) {
  ORXSrvSparseMatrix matrix(rows, columns);
  for (Entry const& e : entries)
    matrix.AddData(e.row, e.column, e.value);
  matrix.EndAssembly();
  return matrix;
}

/// Stores what is not 0 of a matrix written row by row, as on paper.
inline ORXSrvSparseMatrix Sparse(Rows rows, int order = 0) {
  std::vector<Entry> entries;
  std::uint32_t i = 0;
  for (auto const& row : rows) {
    std::uint32_t j = 0;
    for (double const value : row) {
      if (value != 0.0) entries.push_back({i, j, value});
      ++j;
    }
    ++i;
  }
  return Assembled(entries, order, order);
}

/// A symmetric matrix, of which the lower triangle is used.
inline ORXSrvSparseMatrix Symmetric(Rows rows) {
  return Sparse(rows, static_cast<int>(rows.size())).SymmetricForm();
}

/// A Matrix Market file of the usual kind: "rows columns entries" and the entries.
inline std::string General(std::string const& sizesAndEntries) {
  return "%%MatrixMarket matrix coordinate real general\n" + sizesAndEntries;
}

/// How a call ended: "1 message" for a ToolError with exit code 1.
template<class Call>
std::string Ending(Call call) {
  try {
    call();
  } catch (orx::tool::ToolError const& e) {
    return std::to_string(static_cast<int>(e.Code())) + " " + e.what();
  }
  return "no error";
}

/// "3 x 2: 1,1=5 3,2=-0.1": shape and one-based entries, in row order.
inline std::string TextOf(ORXSrvSparseMatrix const& matrix) {
  std::string text = orx::tool::Format("%d x %d:", matrix.NumberOfRows(), matrix.NumberOfColumns());
  ForEachEntry(matrix.View(), [&](int row, int column, double value) {
    text += orx::tool::Format(" %d,%d=%s", row + 1, column + 1, orx::tool::Number(value).c_str());
  });
  return text;
}

#define EXPECT_CONTAINS(text, part) EXPECT_NE((text).find(part), std::string::npos) << (text)

struct RunResult {
  int exitCode = -1;
  std::string out;
  std::string err;
};

/// Runs the program with arguments as a shell reads them.
inline RunResult RunTool(std::string const& arguments) {
  TemporaryFolder const folder;
  std::string const command = "'" ORXMTX_PROGRAM "' " + arguments + " 2>'" + folder.Path("err") + "'";
  bool const isRedirected = arguments.find('>') != std::string::npos;
  int const status = std::system((command + (isRedirected ? "" : " >'" + folder.Path("out") + "'")).c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, folder.Read("out"), folder.Read("err")};
}

struct PrintedMode {
  int number = 0;
  double frequency = 0.0;
  long double eigenvalue = 0.0L;
  double residual = 0.0;
};

/// The mode lines of the program's output, read as a script would.
inline std::vector<PrintedMode> ReadModes(std::string const& output) {
  std::vector<PrintedMode> modes;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("#")) continue;
    PrintedMode mode;
    std::istringstream(line) >> mode.number >> mode.frequency >> mode.eigenvalue >> mode.residual;
    modes.push_back(mode);
  }
  return modes;
}
