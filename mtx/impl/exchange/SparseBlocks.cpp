#include "mtx/impl/exchange/SparseBlocks.h"

#include "mtx/impl/exchange/FileInput.h"
#include "mtx/impl/exchange/FileOutput.h"
#include "mtx/impl/exchange/RowAppender.h"
#include "mtx/impl/exchange/TripletCompressor.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <functional>
#include <span>
#include <utility>

namespace orx {

namespace {

struct Header {
  std::int32_t order;
  std::int32_t entries;
  std::int32_t blocks;
  std::int32_t variant;
  std::int32_t exponent;
  std::int32_t unused;
};
static_assert(sizeof(Header) == 24);

void RequireAtLeastZero(FileInput const& file, std::int64_t offset, std::int32_t value, char const* what) {
  if (value < 0)
    file.Fail(offset, std::string(what) + " of at least 0 expected, found " + std::to_string(value));
}

Header ReadHeader(FileInput& file) {
  Header header{};
  file.Read(&header, 1, "headers");
  RequireAtLeastZero(file, offsetof(Header, order), header.order, "an order");
  RequireAtLeastZero(file, offsetof(Header, entries), header.entries, "a number of entries");
  return header;
}

/// Reads the row pointers. Raises an error unless they begin with 0, do not decrease and end with the number
/// of entries, or with up to `last`.
mem_Array<std::int32_t> ReadRowStarts(FileInput& file, Header const& header, std::int64_t last) {
  std::int64_t const offset = file.Offset();
  auto starts = file.ReadArray<std::int32_t>(std::int64_t{header.order} + 1, "row starts");
  std::int32_t const* const begin = starts.get();
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
  return starts;
}

/// Raises an error for a column index outside of 0 ... order - 1. `offset` is the file offset of the indices.
void CheckColumns(FileInput const& file, std::int64_t offset, std::span<std::uint32_t const> columns,
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
    file.Fail(offsetof(Header, entries),
              "at most 2147483647 entries with the diagonal expected, found " + std::to_string(total));
}

/// Reads the part that both formats have in common; column indices and values are not read yet.
CompressedRows ReadRowsAndDiagonal(FileInput& file, Header const& header, std::int64_t lastStart) {
  CompressedRows content;
  content.rows = content.columns = header.order;
  content.rowPointers = ReadRowStarts(file, header, lastStart);
  content.entries = content.rowPointers[header.order];
  content.diagonal = file.ReadArray<double>(header.order, "diagonal values");
  return content;
}

// Block binary

/// Number of column indices that the blocks hold, with padding.
std::int64_t StoredColumns(FileInput const& file, Header const& header) {
  RequireAtLeastZero(file, offsetof(Header, blocks), header.blocks, "a number of index blocks");
  if (header.exponent < 0 || header.exponent > 30)
    file.Fail(offsetof(Header, exponent),
              "a block size exponent of 0 to 30 expected, found " + std::to_string(header.exponent));
  std::int64_t const stored = std::int64_t{header.blocks} << header.exponent;
  if (stored < header.entries)
    file.Fail(offsetof(Header, blocks), "blocks for " + std::to_string(header.entries) +
                                            " entries expected, found " + std::to_string(header.blocks) +
                                            " blocks of " +
                                            std::to_string(std::int64_t{1} << header.exponent));
  return stored;
}

void ReadBlockColumns(FileInput& file, Header const& header, std::int64_t stored, CompressedRows& content) {
  std::int64_t const offset = file.Offset();
  file.Require(stored, sizeof(std::uint32_t), "column indices");
  content.columnIndices = file.ReadArray<std::uint32_t>(content.entries, "column indices");
  file.Skip(stored - content.entries, sizeof(std::uint32_t), "column indices");
  auto const count = static_cast<std::size_t>(content.entries);
  CheckColumns(file, offset, {content.columnIndices.get(), count}, header.order);
}

/// The triangle that holds all entries of a pattern whose rows ascend; Neither for any other pattern.
enum class Triangle : std::uint8_t { Lower, Upper, Neither };

Triangle TriangleOf(CompressedRows const& pattern) {
  std::int32_t const* const starts = pattern.rowPointers.get();
  std::uint32_t const* const columns = pattern.columnIndices.get();
  bool isLower = true;
  bool isUpper = true;
  bool ascends = true;
  for (std::int32_t i = 0; i < pattern.rows && ascends && (isLower || isUpper); ++i) {
    if (starts[i] == starts[i + 1]) continue;
    auto const row = static_cast<std::uint32_t>(i);
    isUpper = isUpper && columns[starts[i]] > row;
    isLower = isLower && columns[starts[i + 1] - 1] < row;
    for (std::int32_t k = starts[i] + 1; k < starts[i + 1]; ++k)
      ascends &= columns[k - 1] < columns[k];
  }
  if (!ascends || !(isLower || isUpper)) return Triangle::Neither;
  return isUpper ? Triangle::Upper : Triangle::Lower;
}

/// Returns the general form of a matrix of which `pattern` stores one triangle and the diagonal. `stored` are
/// the values of the stored entries, `mirrored` those of their mirror images. Rows and columns ascend without
/// sorting:
///
///     upper   row i:   mirrored, from the rows above | diagonal | stored
///     lower   row i:   stored | diagonal | mirrored, from the rows below
CompressedRows Mirror(CompressedRows const& pattern, Triangle triangle, double const* mirrored,
                      double const* stored) {
  std::int32_t const n = pattern.rows;
  std::int32_t const* const starts = pattern.rowPointers.get();
  std::uint32_t const* const columns = pattern.columnIndices.get();
  auto const next = mem_MakeArray<std::int32_t>(n); // position of the row's next mirrored entry
  std::fill_n(next.get(), n, 0);
  for (std::int32_t k = 0; k < pattern.entries; ++k)
    ++next[columns[k]];
  CompressedRows result;
  AllocateRowPointers(result, n, n);
  result.rowPointers[0] = 0;
  for (std::int32_t i = 0; i < n; ++i) {
    std::int32_t const ownEntries = starts[i + 1] - starts[i] + 1;
    result.rowPointers[i + 1] = result.rowPointers[i] + ownEntries + next[i];
    next[i] = result.rowPointers[i] + (triangle == Triangle::Lower ? ownEntries : 0);
  }
  result.entries = result.numberOfNonzeros = result.rowPointers[n];
  ResizeEntries(result, result.entries);
  for (std::int32_t i = 0; i < n; ++i) {
    std::int32_t const length = starts[i + 1] - starts[i];
    std::int32_t const first = triangle == Triangle::Lower ? result.rowPointers[i] : next[i] + 1;
    std::int32_t const diagonal = triangle == Triangle::Lower ? first + length : next[i];
    std::copy_n(columns + starts[i], length, result.columnIndices.get() + first);
    std::copy_n(stored + starts[i], length, result.values.get() + first);
    result.columnIndices[diagonal] = static_cast<std::uint32_t>(i);
    result.values[diagonal] = pattern.diagonal[i];
    for (std::int32_t k = starts[i]; k < starts[i + 1]; ++k) {
      std::int32_t const to = next[columns[k]]++;
      result.columnIndices[to] = static_cast<std::uint32_t>(i);
      result.values[to] = mirrored[k];
    }
  }
  return result;
}

/// Collects triplets and passes them to a compressor in batches.
class TripletBatch {
public:
  explicit TripletBatch(TripletCompressor& compressor) : m_compressor(compressor) {}
  void Add(std::uint32_t row, std::uint32_t column, double value) {
    if (m_count == size) HandOver();
    m_triplets[m_count++] = {row, column, value};
  }
  void HandOver() {
    m_compressor.Add({m_triplets, m_count});
    m_count = 0;
  }

private:
  static constexpr std::size_t size = 1024;
  TripletCompressor& m_compressor;
  ORXSrvSparseMatrixEntry m_triplets[size];
  std::size_t m_count = 0;
};

/// Does the same as Mirror, for a pattern in any order.
CompressedRows Assemble(CompressedRows const& pattern, double const* transposed, double const* stored) {
  auto const rows = static_cast<std::uint32_t>(pattern.rows);
  std::int32_t const* const starts = pattern.rowPointers.get();
  std::uint32_t const* const columns = pattern.columnIndices.get();
  TripletCompressor compressor(pattern.rows, pattern.columns, pattern.rows + 2 * pattern.entries);
  TripletBatch batch(compressor);
  for (std::uint32_t i = 0; i < rows; ++i)
    batch.Add(i, i, pattern.diagonal[i]);
  for (std::uint32_t i = 0; i < rows; ++i)
    for (std::int32_t k = starts[i]; k < starts[i + 1]; ++k)
      batch.Add(columns[k], i, transposed[k]);
  for (std::uint32_t i = 0; i < rows; ++i)
    for (std::int32_t k = starts[i]; k < starts[i + 1]; ++k)
      batch.Add(i, columns[k], stored[k]);
  batch.HandOver();
  return compressor.Compress();
}

CompressedRows ReadUnsymmetric(FileInput& file, Header const& header, CompressedRows&& pattern) {
  std::int64_t const block = std::int64_t{1} << header.exponent;
  std::int64_t const section = std::max<std::int64_t>(1, (header.entries + block - 1) / block) * block;
  RequireCountable(file, header.order + std::int64_t{2} * header.entries);
  file.Require(section, sizeof(double), "values of the transposed positions");
  mem_Array<double> const transposed = file.ReadArray<double>(header.entries, "values");
  file.Skip(section - header.entries, sizeof(double), "values");
  mem_Array<double> const stored = file.ReadArray<double>(header.entries, "values of the stored positions");
  Triangle const triangle = TriangleOf(pattern);
  return triangle == Triangle::Neither ? Assemble(pattern, transposed.get(), stored.get())
                                       : Mirror(pattern, triangle, transposed.get(), stored.get());
}

// Chunked binary

void ReadChunk(FileInput& file, CompressedRows& content, std::int32_t first, std::int64_t count,
               std::int64_t padding) {
  std::int64_t const offset = file.Offset();
  std::uint32_t* const columns = content.columnIndices.get() + first;
  file.Read(columns, count, "column indices");
  CheckColumns(file, offset, {columns, static_cast<std::size_t>(count)}, content.columns);
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
  Header const header = ReadHeader(file);
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
  Header const header = ReadHeader(file);
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
  std::int32_t const chunks = (entries - 1) / chunk + 1;
  std::int32_t const rest = entries % chunk;
  FileOutput file(path, FileOutput::Existing::KeepTail);
  Header const header{n, entries, chunks, 0, exponent, 1};
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
