#include "tools/formats/FileKind.h"

#include "tools/formats/Probe.h"
#include "tools/terminal/Text.h"
#include "tools/terminal/ToolError.h"

#include "mtx/layouts/FileLayouts.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <unistd.h>

namespace orx::tool {
namespace {

constexpr FileKindDescription kinds[] = {
    {FileKind::Triplets, "triplets", ".txt", "text, lines \"row column value\", from 1"},
    {FileKind::Commas, "commas", ".csv", "text, lines \"row,column, value\", from 0"},
    {FileKind::NodeDofs, "nodedofs", ".dof", "text, lines \"node,dof,node,dof,value\""},
    {FileKind::MatrixMarket, "mtx", ".mtx", "Matrix Market, coordinate"},
    {FileKind::MatrixMarketArray, "mtx-array", nullptr, "Matrix Market, array"},
    {FileKind::Fortran, "fortran", ".unf", "Fortran unformatted, symmetric"},
    {FileKind::Blocks, "blocks", ".blk", "block binary, symmetric or unsymmetric"},
    {FileKind::Chunks, "chunks", ".chk", "chunked binary, symmetric"},
    {FileKind::Dense, "dense", ".bin", "dense binary"},
    {FileKind::Database, "database", nullptr, "a matrix of a database"},
};

// Text

bool IsTextCharacter(char c) { return (c >= ' ' && c <= '~') || (c >= '\t' && c <= '\r'); }

bool BeginsWithBanner(std::string const& text) {
  constexpr char banner[] = "%%matrixmarket";
  return text.size() >= sizeof banner - 1 &&
         std::equal(banner, banner + sizeof banner - 1, text.begin(), [](char expected, char found) {
           return expected == std::tolower(static_cast<unsigned char>(found));
         });
}

FileKind KindOfBanner(std::string text) {
  text.resize(std::min(text.find('\n'), text.size()));
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text.find(" array") != std::string::npos ? FileKind::MatrixMarketArray : FileKind::MatrixMarket;
}

FileKind KindOfFirstLine(std::string const& text) {
  std::size_t const first = text.find_first_not_of(" \t\n\v\f\r");
  if (first == std::string::npos) return FileKind::Triplets;
  std::size_t const end = std::min(text.find('\n', first), text.size());
  auto const begin = text.begin() + static_cast<std::ptrdiff_t>(first);
  auto const commas = std::count(begin, text.begin() + static_cast<std::ptrdiff_t>(end), ',');
  if (commas == 2) return FileKind::Commas;
  return commas == 4 ? FileKind::NodeDofs : FileKind::Triplets;
}

// Binary files

/// Every record lies between two copies of its length, and the last one ends the file.
bool IsFortran(Probe const& file) {
  std::array<std::int32_t, 3> first{};
  if (!file.Read(0, first) || first[0] != fortranOrderBytes || first[2] != fortranOrderBytes || first[1] < 0)
    return false;
  std::int32_t const order = first[1];
  std::int64_t offset = sizeof first;
  for (std::int32_t row = 0; row < order; ++row) {
    std::array<std::int32_t, 2> begin{};
    std::int32_t end = 0;
    if (!file.Read(offset, begin) || begin[1] < 1 || begin[1] > order) return false;
    std::int64_t const length = FortranRowBytes(begin[1]);
    if (begin[0] != length || !file.Read(offset + fortranMarkerBytes + length, end) || end != length)
      return false;
    offset += length + 2 * fortranMarkerBytes;
  }
  return offset == file.Size();
}

/// False unless the file begins with what can be a header, and the row pointers begin with 0 and end with the
/// entries.
bool ReadBlockHeader(Probe const& file, BlockHeader& header) {
  if (!file.Read(0, header) || header.order < 0 || header.entries < 0 || header.blocks < 0 ||
      header.exponent < 0 || header.exponent > largestBlockExponent)
    return false;
  std::int64_t const pointers = sizeof header;
  std::int32_t first = 0;
  std::int32_t last = 0;
  return file.Read(pointers, first) && first == 0 &&
         file.Read(pointers + 4 * std::int64_t{header.order}, last) && last == header.entries;
}

/// The last block may end with the last value.
bool IsBlocks(Probe const& file) {
  BlockHeader header{};
  if (!ReadBlockHeader(file, header)) return false;
  std::int64_t const length = header.BlockLength();
  if (header.blocks * length < header.entries || header.blocks > file.Size() / length) return false;
  bool const isUnsymmetric = header.variant != 0;
  std::int64_t const sections = isUnsymmetric ? 2 : 1;
  std::int64_t const sectionLength =
      length * (isUnsymmetric ? BlocksFor(header.entries, length) : header.blocks);
  std::int64_t const values =
      header.ColumnsOffset() + 4 * length * header.blocks + 8 * sectionLength * (sections - 1);
  return file.Size() == values + 8 * std::int64_t{header.entries} ||
         file.Size() == values + 8 * sectionLength;
}

bool IsChunks(Probe const& file) {
  BlockHeader header{};
  if (!ReadBlockHeader(file, header)) return false;
  std::int64_t const chunks = BlocksFor(header.entries, chunkLength);
  if (header.blocks != chunks || header.variant != 0 || header.exponent != chunkExponent ||
      header.unused != 1)
    return false;
  std::int64_t const order = header.order;
  std::int64_t const trailer = 4 + 4 * (order + 1) + 4 * std::int64_t{header.entries} + 8 * order;
  return file.Size() == header.ColumnsOffset() + 12 * chunkLength * chunks + trailer;
}

bool IsDense(Probe const& file) {
  DenseHeader header{};
  return file.Read(0, header) && header.rows >= 0 && header.columns >= 0 && header.rowsAgain == header.rows &&
         header.columnsAgain == header.columns && (file.Size() - 16) % 8 == 0 &&
         (file.Size() - 16) / 8 == std::int64_t{header.rows} * header.columns;
}

std::string NamesText(std::vector<FileKind> const& among) {
  std::string text;
  for (FileKind const kind : among)
    text += (text.empty() ? "" : ", ") + std::string(Describe(kind).name);
  return text;
}

std::string AllNamesText() {
  std::vector<FileKind> all;
  for (FileKindDescription const& description : FileKinds())
    all.push_back(description.kind);
  return NamesText(all);
}

bool BeginsAsDatabase(std::string const& begin) {
  constexpr std::string_view signature = "\x89HDF\r\n\x1a\n";
  constexpr std::string_view unfinishedCommit = "orxapply";
  return begin.starts_with(signature) || begin.starts_with(unfinishedCommit);
}

} // namespace

std::span<FileKindDescription const> FileKinds() {
  return std::span(kinds).first(static_cast<std::size_t>(FileKind::Database));
}

bool HasHeader(FileKind kind) {
  return kind != FileKind::Triplets && kind != FileKind::Commas && kind != FileKind::NodeDofs;
}

FileKindDescription const& Describe(FileKind kind) { return kinds[static_cast<int>(kind)]; }

FileKind KindOfName(std::string const& name) {
  for (FileKindDescription const& description : kinds)
    if (name == description.name) return description.kind;
  throw ToolError(ExitCode::WrongUsage,
                  "there is no file type '" + name + "'; expected one of " + AllNamesText());
}

FileKind KindToWrite(std::string const& name) {
  FileKind const kind = KindOfName(name);
  if (kind == FileKind::Database)
    throw ToolError(ExitCode::WrongUsage,
                    "matrices of databases are read, not written; expected one of " + AllNamesText());
  return kind;
}

FileKind KindOfExtension(std::string const& path) {
  if (path == "-")
    throw ToolError(ExitCode::WrongUsage,
                    "standard output has no extension; expected --to, with one of " + AllNamesText());
  std::string const extension = std::filesystem::path(path).extension().string();
  std::string known;
  for (FileKindDescription const& description : kinds) {
    if (description.extension == nullptr) continue;
    if (extension == description.extension) return description.kind;
    known += (known.empty() ? "" : ", ") + std::string(description.extension);
  }
  throw ToolError(ExitCode::WrongUsage, "'" + path + "' has the extension '" + extension +
                                            "', which names no file type; expected one of " + known +
                                            ", or --to");
}

std::vector<FileKind> CandidateKinds(std::string const& path) {
  Probe const file(path);
  if (!file.IsRegular()) return {FileKind::Triplets};
  std::string begin = file.Begin(std::size_t{1} << 16);
  if (begin.starts_with(byteOrderMark)) begin.erase(0, byteOrderMark.size());
  if (BeginsWithBanner(begin)) return {KindOfBanner(begin)};
  if (BeginsAsDatabase(begin)) return {FileKind::Database};

  std::vector<FileKind> candidates;
  if (std::all_of(begin.begin(), begin.end(), IsTextCharacter)) candidates.push_back(KindOfFirstLine(begin));
  if (IsFortran(file)) candidates.push_back(FileKind::Fortran);
  if (IsBlocks(file)) candidates.push_back(FileKind::Blocks);
  if (IsChunks(file)) candidates.push_back(FileKind::Chunks);
  if (IsDense(file)) candidates.push_back(FileKind::Dense);
  return candidates;
}

bool BeginsWithByteOrderMark(std::string const& path) {
  Probe const file(path);
  return file.IsRegular() && file.Begin(byteOrderMark.size()) == byteOrderMark;
}

bool HoldsDatabase(std::string const& path) {
  Probe const file(path);
  return file.IsRegular() && BeginsAsDatabase(file.Begin(8));
}

FileKind RecognizeKind(std::string const& path) {
  RequireReadable(path);
  std::vector<FileKind> const candidates = CandidateKinds(path);
  if (candidates.size() == 1) return candidates.front();
  std::string const howToGoOn = "orxmtx convert with --from reads it as the type that it is said to be";
  if (candidates.empty())
    throw ToolError(
        ExitCode::UnusableInput,
        "'" + path + "' is no matrix file: it is not text, and its size of " +
            Counted(static_cast<std::int64_t>(std::filesystem::file_size(path)), "byte", "bytes") +
            " does not fit the header of a binary type; " + howToGoOn);
  throw ToolError(ExitCode::UnusableInput,
                  "'" + path + "' can be of several types: " + NamesText(candidates) + "; " + howToGoOn);
}

void RequireReadable(std::string const& path) {
  std::error_code ignored;
  if (std::filesystem::is_directory(path, ignored))
    errno = EISDIR;
  else if (access(path.c_str(), R_OK) == 0)
    return;
  throw ToolError(ExitCode::UnusableInput, "cannot read '" + path + "': " + std::strerror(errno));
}

} // namespace orx::tool
