#pragma once

#include "tools/formats/MatrixExport.h"

#include <string>

namespace orx::tool {

struct ConvertOptions {
  std::string inPath;
  std::string outPath;
  std::string from;     ///< name of a file type; empty: recognized by the content
  std::string to;       ///< name of a file type; empty: by the extension of outPath
  std::string triangle; ///< lower, upper or full; empty: as stored
  int base = -1;        ///< first index of triplets or comma text that is read; -1: as of its type
  int dofsPerNode = 0;  ///< of text by nodes; 0: not said
  int digits = 16;      ///< of text without a header, 16 or 17
  bool isLargeAllowed = false;
};

/// What `orxmtx convert` prints: both files and what they hold. Writes outPath, as a whole or not at all.
std::string ConvertText(ConvertOptions const& options);

/// The table of types for the help.
std::string FileKindsText();

} // namespace orx::tool
