#pragma once

#include <string>

namespace orx::tool {

struct SpyOptions {
  std::string path;
  bool isAscii = false;
  int width = 0;       ///< characters of a line; 0: of the terminal
  std::string pngPath; ///< empty: the picture is drawn as text
  int pngSize = 1024;  ///< pixels of the longer side at most
};

/// What `orxmtx spy` prints: the sparsity pattern, and shape, entries, bandwidth and symmetry below it.
/// Writes the PNG file instead of drawing when one is asked for.
std::string SpyText(SpyOptions const& options);

} // namespace orx::tool
