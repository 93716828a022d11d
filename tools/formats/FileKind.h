#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

// The types of matrix files, their names on the command line, and how a file's type is told from its content.

namespace orx::tool {

enum class FileKind {
  Triplets,          ///< text, one-based: import codes 2 and 3, export code 3 of the library
  Commas,            ///< text, zero-based, with commas: export code 5
  NodeDofs,          ///< text by nodes and their degrees of freedom: export code 4
  MatrixMarket,      ///< text with a header, the entries
  MatrixMarketArray, ///< text with a header, all values by columns
  Fortran,           ///< Fortran unformatted, symmetric: import code 0
  Blocks,            ///< block binary, symmetric or not: import code 1
  Chunks,            ///< chunked binary, symmetric: code 6
  Dense,             ///< dense binary: code 7
  Database           ///< a matrix of a database; it is read, not written
};

struct FileKindDescription {
  FileKind kind;
  char const* name;      ///< for --from and --to
  char const* extension; ///< that stands for --to; null: none does
  char const* text;
};

/// Those that are written, in the order of the enumeration.
std::span<FileKindDescription const> FileKinds();
FileKindDescription const& Describe(FileKind kind);
/// Whether a file says its shape, and whether one triangle stands for both.
bool HasHeader(FileKind kind);

/// The type that a name stands for; another name is a ToolError, and so is one of a type that is only read.
FileKind KindOfName(std::string const& name);
FileKind KindToWrite(std::string const& name);
/// The type that a path's extension stands for; a ToolError lists the extensions.
FileKind KindOfExtension(std::string const& path);

/// What some editors put before text, to say that it is UTF-8. It is no part of the text.
constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
bool BeginsWithByteOrderMark(std::string const& path);

/// True for a regular file that begins as a database does, also as one whose last commit was cut off.
bool HoldsDatabase(std::string const& path);

/// Every type whose rules the whole file meets. Binary types: the header and the ends of the tables agree
/// with each other and with the size of the file to the byte; a block file may end with its last value
/// instead of its last block. Text is told by its first line. What is no regular file cannot be looked at
/// twice and counts as text triplets; InputFile makes a regular one of it.
std::vector<FileKind> CandidateKinds(std::string const& path);

/// The one candidate; none or several are a ToolError that says how to go on.
FileKind RecognizeKind(std::string const& path);

/// A ToolError with the system's reason unless the file can be read.
void RequireReadable(std::string const& path);

} // namespace orx::tool
