#pragma once

#include <string>

namespace orx::file {

class PositionedFile;

// Scratch files are of no use once their process has ended. They begin with a mark, in place of HDF5's
// signature, until their metadata is written when they are closed.

/// Deletes the file at the path of a new scratch file: one that a dead process has left, or a symbolic link
/// (but not its target). Does nothing when there is no file. Raises FileError when the file must stay: a
/// process has it open (EWOULDBLOCK); it is a database that is not scratch (EEXIST), unless
/// `replacesDatabase`; it is not a regular file (ENODEV); it cannot be opened.
void MakeWayForScratch(std::string const& path, bool replacesDatabase);

/// Writes the mark of scratch files at the start of a file.
void MarkAsScratch(PositionedFile& file);

/// Deletes the scratch files that dead processes of this machine have left in the folder of `path`: the files
/// *.sim that have this machine's mark and that no process has open. Each process does so once for each
/// folder. Failures are ignored.
void SweepFolderOf(std::string const& path) noexcept;

} // namespace orx::file
