#include "tools/formats/SymmetricFiles.h"

#include "tools/formats/OutputFile.h"
#include "tools/numerics/Symmetry.h"

#include <algorithm>
#include <numeric>

namespace orx::tool {
namespace {

constexpr int blockExponent = 10;
constexpr std::int64_t blockLength = std::int64_t{1} << blockExponent;

std::int64_t BlocksFor(std::int64_t elements) {
  return std::max<std::int64_t>(1, (elements + blockLength - 1) / blockLength);
}

template<class T>
void WriteInBlocks(OutputFile& file, std::vector<T> const& elements, std::int64_t blocks) {
  file.WriteValues<T>(elements);
  file.WriteZeros((blocks * blockLength - static_cast<std::int64_t>(elements.size())) *
                  static_cast<std::int64_t>(sizeof(T)));
}

} // namespace

TriangleRows RowsOfTriangle(MatrixEntries const& matrix, Triangle triangle) {
  std::vector<MirroredPair> pairs = MirroredPairs(matrix);
  if (triangle == Triangle::Upper) {
    for (MirroredPair& pair : pairs)
      pair = {pair.column, pair.row, pair.upper, pair.lower};
    std::stable_sort(pairs.begin(), pairs.end(),
                     [](MirroredPair const& a, MirroredPair const& b) { return a.row < b.row; });
  }
  TriangleRows rows;
  rows.order = matrix.Rows();
  rows.diagonal.assign(static_cast<std::size_t>(rows.order), 0.0);
  for (Entry const& e : matrix.Items())
    if (e.row == e.column) rows.diagonal[e.row] = e.value;
  rows.starts.assign(static_cast<std::size_t>(rows.order) + 1, 0);
  for (MirroredPair const& pair : pairs) {
    ++rows.starts[pair.row + 1];
    rows.columns.push_back(static_cast<std::int32_t>(pair.column));
    rows.values.push_back(pair.lower);
    rows.mirrored.push_back(pair.upper);
  }
  std::partial_sum(rows.starts.begin(), rows.starts.end(), rows.starts.begin());
  return rows;
}

void WriteFortran(std::string const& path, TriangleRows const& matrix) {
  OutputFile file(path);
  auto const writeRecord = [&](std::int32_t bytes, auto const& writeFields) {
    file.WriteInt(bytes);
    writeFields();
    file.WriteInt(bytes);
  };
  writeRecord(4, [&] { file.WriteInt(matrix.order); });
  for (int i = 0; i < matrix.order; ++i) {
    std::int32_t const start = matrix.starts[i];
    std::int32_t const count = matrix.starts[i + 1] - start;
    writeRecord(4 + 12 * (count + 1), [&] {
      file.WriteInt(count + 1);
      file.WriteInt(i + 1);
      for (std::int32_t k = start; k < start + count; ++k)
        file.WriteInt(matrix.columns[k] + 1);
      file.WriteValues<double>({&matrix.diagonal[i], 1});
      file.WriteValues<double>({matrix.values.data() + start, static_cast<std::size_t>(count)});
    });
  }
  file.Close();
}

void WriteBlocks(std::string const& path, TriangleRows const& matrix, bool isSymmetric) {
  auto const entries = static_cast<std::int64_t>(matrix.columns.size());
  // Readers of the symmetric variant may keep as many elements as there are entries and rows.
  std::int64_t const blocks = BlocksFor(isSymmetric ? entries + matrix.order : entries);
  OutputFile file(path);
  file.WriteInt(matrix.order);
  file.WriteInt(static_cast<std::int32_t>(entries));
  file.WriteInt(static_cast<std::int32_t>(blocks));
  file.WriteInt(isSymmetric ? 0 : 1);
  file.WriteInt(blockExponent);
  file.WriteInt(0);
  file.WriteValues<std::int32_t>(matrix.starts);
  file.WriteValues<double>(matrix.diagonal);
  WriteInBlocks(file, matrix.columns, blocks);
  if (!isSymmetric) WriteInBlocks(file, matrix.mirrored, blocks);
  WriteInBlocks(file, matrix.values, blocks);
  file.Close();
}

} // namespace orx::tool
