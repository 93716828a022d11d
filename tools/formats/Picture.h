#pragma once

#include "mtx/ORXSrvSparseMatrix.h"

#include <string>
#include <vector>

namespace orx::tool {

/// The sparsity pattern in pixels, of which each covers a range of rows and columns.
///
///     rows of pixel y: ceil(y rows / height) up to, without, ceil((y + 1) rows / height)
struct Raster {
  int width = 0;
  int height = 0;
  /// By rows of pixels: 0 where no entry is stored, else the root of the share of stored positions, relative
  /// to the densest pixel's; the root keeps thin places visible.
  std::vector<double> shades;

  double Shade(int x, int y) const { return shades[static_cast<std::size_t>(y) * width + x]; }
};

/// REQUIRES 0 < width <= columns and 0 < height <= rows, or an empty matrix and 0.
Raster Rasterize(ORXSrvSparseMatrix const& matrix, int width, int height);

struct PictureSize {
  int width;
  int height;
};

/// The largest picture that keeps the shape of a matrix within limits, and has no more pixels than the matrix
/// positions. `pixelAspect` is the height of a pixel by its width; a matrix that fits as it is stays as it
/// is.
PictureSize FitPicture(int rows, int columns, PictureSize const& limits, int pixelAspect);

/// One character a pixel, from ' ' over ". : + *" to '#', in a frame.
std::string AsciiPicture(Raster const& raster);

/// One dot of a braille character, 2 x 4 of them, for each pixel with an entry; UTF-8, in a frame.
std::string BraillePicture(Raster const& raster);

/// Grey levels, black for the densest pixels, white for empty ones; each pixel is a square of
/// `magnification`. A failure is a ToolError.
void WritePng(std::string const& path, Raster const& raster, int magnification);

} // namespace orx::tool
