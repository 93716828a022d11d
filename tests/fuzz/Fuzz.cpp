#include "mtx/ORXSrvMtxOpenFileException.h"
#include "mtx/impl/exchange/DenseBinary.h"
#include "mtx/impl/exchange/FortranRecords.h"
#include "mtx/impl/exchange/SparseBlocks.h"
#include "mtx/impl/exchange/TextTriplets.h"
#include "tests/support/Uncopied.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

// Gives a reader the fuzzer's bytes as a file. It may refuse them with its own error, or run out of the
// memory that the fuzzer grants it; what it accepts has to be a sound matrix. CMakeLists.txt names the reader
// of each target.

using namespace orx;

namespace {

/// The bytes as a file in memory that has a path.
class MemoryFile : Uncopied {
public:
  MemoryFile(std::uint8_t const* bytes, std::size_t size) : m_file(memfd_create("fuzz", 0)) {
    if (m_file < 0 || write(m_file, bytes, size) != static_cast<ssize_t>(size)) std::abort();
    m_path = "/proc/self/fd/" + std::to_string(m_file);
  }
  ~MemoryFile() { close(m_file); }
  std::string const& Path() const { return m_path; }

private:
  int m_file;
  std::string m_path;
};

void Require(bool holds, char const* what) {
  if (holds) return;
  std::fprintf(stderr, "not so: %s\n", what);
  std::abort();
}

/// Touches all of the matrix.
void RequireSound(CompressedRows const& matrix) {
  std::int32_t const* const starts = matrix.rowPointers.get();
  Require(matrix.rows >= 0 && matrix.columns >= 0, "dimensions are not negative");
  Require(starts[0] == 0 && starts[matrix.rows] == matrix.entries, "row pointers go from 0 to the count");
  for (std::int32_t i = 0; i < matrix.rows; ++i)
    Require(starts[i] <= starts[i + 1], "row pointers do not decrease");
  double sum = 0.0;
  for (std::int32_t k = 0; k < matrix.entries; ++k) {
    Require(matrix.columnIndices[k] < static_cast<std::uint32_t>(matrix.columns), "columns are in range");
    sum += matrix.values[k];
  }
  if (matrix.diagonal != nullptr) {
    Require(matrix.rows == matrix.columns, "the symmetric form is square");
    for (std::int32_t i = 0; i < matrix.rows; ++i)
      sum += matrix.diagonal[i];
  }
  double const volatile used = sum;
  static_cast<void>(used);
}

/// A few bytes can stand for a matrix of many rows, which only takes time.
constexpr std::int32_t largestDimension = 10000;
constexpr int notForTheCorpus = -1;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t size) {
  MemoryFile const file(bytes, size);
  char const* const path = file.Path().c_str();
  try {
    CompressedRows const matrix = ORX_READ;
    if (std::max(matrix.rows, matrix.columns) > largestDimension) return notForTheCorpus;
    RequireSound(matrix);
  } catch (ORXSrvMtxOpenFileException const& error) {
    std::string const text = error.AsString().AsText();
    Require(text.find(file.Path()) != std::string::npos, "the error names the path");
    Require(text.find(" expected") != std::string::npos, "the error says what was expected");
  } catch (mem_OutOfMemory const&) {
    return notForTheCorpus;
  }
  return 0;
}
