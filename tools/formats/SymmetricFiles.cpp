#include "tools/formats/SymmetricFiles.h"

#include "tools/formats/OutputFile.h"

#include "mtx/layouts/FileLayouts.h"

namespace orx::tool {
namespace {

constexpr int blockExponent = 10;
constexpr std::int64_t blockLength = std::int64_t{1} << blockExponent;

template<class T>
void WriteInBlocks(OutputFile& file, T const* elements, std::int64_t count, std::int64_t blocks) {
  file.WriteValues(elements, count);
  file.WriteZeros((blocks * blockLength - count) * static_cast<std::int64_t>(sizeof(T)));
}

} // namespace

void WriteFortran(std::string const& path, CompressedRowsView const& matrix) {
  OutputFile file(path);
  auto const writeRecord = [&](std::int64_t bytes, auto const& writeFields) {
    file.WriteInt(static_cast<std::int32_t>(bytes));
    writeFields();
    file.WriteInt(static_cast<std::int32_t>(bytes));
  };
  writeRecord(fortranOrderBytes, [&] { file.WriteInt(matrix.rows); });
  for (std::int32_t i = 0; i < matrix.rows; ++i) {
    std::int32_t const count = matrix.Length(i);
    writeRecord(FortranRowBytes(std::int64_t{count} + 1), [&] {
      file.WriteInt(count + 1);
      file.WriteInt(i + 1);
      for (std::int32_t k = 0; k < count; ++k)
        file.WriteInt(static_cast<std::int32_t>(matrix.ColumnsOf(i)[k]) + 1);
      file.WriteValues(&matrix.diagonal[i], 1);
      file.WriteValues(matrix.values + matrix.rowPointers[i], count);
    });
  }
  file.Close();
}

void WriteBlocks(std::string const& path, CompressedRowsView const& matrix, double const* mirrored) {
  std::int32_t const entries = matrix.Entries();
  bool const isSymmetric = mirrored == nullptr;
  // Readers of the symmetric variant may keep as many elements as there are entries and rows.
  std::int64_t const blocks =
      BlocksFor(isSymmetric ? std::int64_t{entries} + matrix.rows : entries, blockLength);
  BlockHeader const header{matrix.rows,         entries,       static_cast<std::int32_t>(blocks),
                           isSymmetric ? 0 : 1, blockExponent, 0};
  OutputFile file(path);
  file.WriteValues(&header, 1);
  file.WriteValues(matrix.rowPointers, std::int64_t{matrix.rows} + 1);
  file.WriteValues(matrix.diagonal, matrix.rows);
  WriteInBlocks(file, matrix.columnIndices, entries, blocks);
  if (!isSymmetric) WriteInBlocks(file, mirrored, entries, blocks);
  WriteInBlocks(file, matrix.values, entries, blocks);
  file.Close();
}

} // namespace orx::tool
