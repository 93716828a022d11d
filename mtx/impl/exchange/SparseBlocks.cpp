#include "mtx/impl/exchange/SparseBlocks.h"

#include "mtx/impl/exchange/FileInput.h"
#include "mtx/impl/exchange/FileOutput.h"
#include "mtx/impl/exchange/GeneralForm.h"
#include "mtx/impl/exchange/RowAppender.h"
#include "mtx/layouts/FileLayouts.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <functional>
#include <span>
#include <utility>

namespace orx {

namespace {

void RequireAtLeastZero(FileInput const& file, std::int64_t offset, std::int32_t value, char const* what) {
  if (value < 0)
    file.Fail(offset, std::string(what) + " of at least 0 expected, found " + std::to_string(value));
}

BlockHeader ReadBlockHeader(FileInput& file) {
  BlockHeader header{};
  file.Read(&header, 1, "headers");
  RequireAtLeastZero(file, offsetof(BlockHeader, order), header.order, "an order");
  RequireAtLeastZero(file, offsetof(BlockHeader, entries), header.entries, "a number of entries");
  return header;
}

/// Reads the row pointers. Raises an error unless they begin with 0, do not decrease and end with the number
/// of entries, or with up to `last`.
mem_Array<std::int32_t> ReadRowPointers(FileInput& file, BlockHeader const& header, std::int64_t last) {
  std::int64_t const offset = file.Offset();
  auto pointers = file.ReadArray<std::int32_t>(std::int64_t{header.order} + 1, "row starts");
  std::int32_t const* const begin = pointers.get();
  std::int32_t const* const end = begin + header.order + 1;
  auto const fail = [&](std::int32_t const* at, std::string const& expected) {
    file.Fail(offset + 4 * (at - begin), expected + " expected, found " + std::to_string(*at));
  };
  if (*begin != 0) fail(begin, "a first row start of 0");
  std::int32_t const* const step = std::adjacent_find(begin, end, std::greater<>());
  if (step != end) fail(step + 1, "a row start of at least " + std::to_string(*step));
  if (end[-1] < header.entries || end[-1] > last)
    fail(end - 1, "a last row start of " + std::to_string(header.entries) +
                      (last > header.entries ? " to " + std::to_string(last) : ""));
  return pointers;
}

/// Raises an error for a column index outside of 0 ... order - 1. `offset` is the file offset of the indices.
void RequireColumnsBelow(FileInput const& file, std::int64_t offset, std::span<std::uint32_t const> columns,
                         std::int32_t order) {
  // Finding the largest index is several times faster than finding the first that is too large.
  std::uint32_t largest = 0;
  for (std::uint32_t const column : columns)
    largest = std::max(largest, column);
  auto const limit = static_cast<std::uint32_t>(order);
  if (columns.empty() || largest < limit) return;
  auto const at = std::find_if(columns.begin(), columns.end(), [=](std::uint32_t c) { return c >= limit; });
  file.Fail(offset + 4 * (at - columns.begin()), "a column of 0 to " + std::to_string(order - 1) +
                                                     " expected, found " +
                                                     std::to_string(static_cast<std::int32_t>(*at)));
}

void RequireCountable(FileInput const& file, std::int64_t total) {
  if (total > INT_MAX)
    file.Fail(offsetof(BlockHeader, entries),
              "at most 2147483647 entries with the diagonal expected, found " + std::to_string(total));
}

/// Reads the part that both formats have in common; column indices and values are not read yet.
CompressedRows ReadRowsAndDiagonal(FileInput& file, BlockHeader const& header, std::int64_t largestLast) {
  CompressedRows content;
  content.rows = content.columns = header.order;
  content.rowPointers = ReadRowPointers(file, header, largestLast);
  content.entries = content.rowPointers[header.order];
  content.diagonal = file.ReadArray<double>(header.order, "diagonal values");
  return content;
}

// Block binary

/// Number of column indices that the blocks hold, with padding.
std::int64_t StoredColumns(FileInput const& file, BlockHeader const& header) {
  RequireAtLeastZero(file, offsetof(BlockHeader, blocks), header.blocks, "a number of index blocks");
  if (header.exponent < 0 || header.exponent > largestBlockExponent)
    file.Fail(offsetof(BlockHeader, exponent),
              "a block size exponent of 0 to 30 expected, found " + std::to_string(header.exponent));
  std::int64_t const stored = std::int64_t{header.blocks} << header.exponent;
  if (stored < header.entries)
    file.Fail(offsetof(BlockHeader, blocks), "blocks for " + std::to_string(header.entries) +
                                                 " entries expected, found " + std::to_string(header.blocks) +
                                                 " blocks of " + std::to_string(header.BlockLength()));
  return stored;
}

void ReadBlockColumns(FileInput& file, BlockHeader const& header, std::int64_t stored,
                      CompressedRows& content) {
  std::int64_t const offset = file.Offset();
  file.Require(stored, sizeof(std::uint32_t), "column indices");
  content.columnIndices = file.ReadArray<std::uint32_t>(content.entries, "column indices");
  file.Skip(stored - content.entries, sizeof(std::uint32_t), "column indices");
  auto const count = static_cast<std::size_t>(content.entries);
  RequireColumnsBelow(file, offset, {content.columnIndices.get(), count}, header.order);
}

CompressedRows ReadUnsymmetric(FileInput& file, BlockHeader const& header, CompressedRows&& pattern) {
  std::int64_t const block = header.BlockLength();
  std::int64_t const section = BlocksFor(header.entries, block) * block;
  RequireCountable(file, header.order + std::int64_t{2} * header.entries);
  file.Require(section, sizeof(double), "values of the transposed positions");
  mem_Array<double> const transposed = file.ReadArray<double>(header.entries, "values");
  file.Skip(section - header.entries, sizeof(double), "values");
  mem_Array<double> const stored = file.ReadArray<double>(header.entries, "values of the stored positions");
  return MakeGeneralForm(pattern.View(), transposed.get(), stored.get());
}

// Chunked binary

void ReadChunk(FileInput& file, CompressedRows& content, std::int32_t first, std::int64_t count,
               std::int64_t padding) {
  std::int64_t const offset = file.Offset();
  std::uint32_t* const columns = content.columnIndices.get() + first;
  file.Read(columns, count, "column indices");
  RequireColumnsBelow(file, offset, {columns, static_cast<std::size_t>(count)}, content.columns);
  file.Skip(padding, sizeof(std::uint32_t), "padding column indices");
  file.Read(content.values.get() + first, count, "values");
}

void WriteTrailer(FileOutput& file, CompressedRowsView const& matrix) {
  std::int32_t const n = matrix.rows;
  file.Write(&n, 1);
  file.Write(matrix.rowPointers, std::int64_t{n} + 1);
  file.Write(matrix.columnIndices, matrix.Entries());
  std::int32_t const one = 1;
  for (std::int32_t i = 0; i < n; ++i)
    file.Write(&one, 1);
  for (std::int32_t i = 0; i < n; ++i)
    file.Write(&i, 1);
}

} // namespace

CompressedRows ReadBlockBinary(char const* path) {
  FileInput file(path);
  BlockHeader const header = ReadBlockHeader(file);
  std::int64_t const stored = StoredColumns(file, header);
  std::int64_t const withDiagonal = std::int64_t{header.order} + header.entries;
  bool const isSymmetric = header.variant == 0;
  CompressedRows content =
      ReadRowsAndDiagonal(file, header, isSymmetric ? std::min(stored, withDiagonal) : header.entries);
  ReadBlockColumns(file, header, stored, content);
  if (!isSymmetric) return ReadUnsymmetric(file, header, std::move(content));
  RequireCountable(file, withDiagonal);
  content.values = file.ReadArray<double>(content.entries, "values");
  content.numberOfNonzeros = header.order + header.entries;
  return content;
}

CompressedRows ReadChunkedBinary(char const* path, int exponent) {
  FileInput file(path);
  BlockHeader const header = ReadBlockHeader(file);
  RequireCountable(file, std::int64_t{header.order} + header.entries);
  CompressedRows content = ReadRowsAndDiagonal(file, header, header.entries);
  std::int32_t const chunk = std::int32_t{1} << exponent;
  std::int32_t const rest = header.entries % chunk;
  file.Require(header.entries, sizeof(std::uint32_t) + sizeof(double), "entries");
  ResizeEntries(content, header.entries);
  std::int32_t first = 0;
  for (; header.entries - first >= chunk; first += chunk)
    ReadChunk(file, content, first, chunk, 0);
  if (rest > 0) ReadChunk(file, content, first, rest, chunk - rest);
  content.numberOfNonzeros = header.order + header.entries;
  return content;
}

void WriteChunkedBinary(char const* path, CompressedRowsView const& matrix, int exponent) {
  std::int32_t const n = matrix.rows;
  std::int32_t const entries = matrix.Entries();
  std::int32_t const chunk = std::int32_t{1} << exponent;
  auto const chunks = static_cast<std::int32_t>(BlocksFor(entries, chunk));
  std::int32_t const rest = entries % chunk;
  FileOutput file(path, FileOutput::Existing::KeepTail);
  BlockHeader const header{n, entries, chunks, 0, exponent, 1};
  file.Write(&header, 1);
  file.Write(matrix.rowPointers, std::int64_t{n} + 1);
  file.Write(matrix.diagonal, n);
  std::int32_t first = 0;
  for (std::int32_t c = 1; c < chunks; ++c, first += chunk) {
    file.Write(matrix.columnIndices + first, chunk);
    file.Write(matrix.values + first, chunk);
  }
  file.Write(matrix.columnIndices + first, rest);
  file.WriteZeros(std::int64_t{4} * (chunk - rest));
  file.Write(matrix.values + first, rest);
  file.WriteZeros(std::int64_t{8} * (chunk - rest));
  WriteTrailer(file, matrix);
  file.Close();
}

} // namespace orx
