#pragma once

#include <string>

namespace orx::file {

class PositionedFile;

// Scratch files: of no use once their process is gone. They begin with a mark, in place of HDF5's signature,
// until their structure is written when they are closed.

/// Takes away what has the name that a new scratch file is to have: the file of a process that died, or a
/// symbolic link, not what it points to. What is not there to be taken is an error (FileError): a file that
/// somebody has open (EWOULDBLOCK); a database that is not scratch (EEXIST), unless `replacesDatabase`; a
/// file of another user that cannot be looked into.
void MakeWayForScratch(std::string const& path, bool replacesDatabase);

/// Writes the mark.
void MarkAsScratch(PositionedFile& file);

/// Deletes what processes of this machine that died have left of scratch files in a folder: the files *.sim
/// that have the mark and that nobody has open. A folder is swept once by each process. Failures are ignored.
void SweepFolderOf(std::string const& path) noexcept;

} // namespace orx::file
