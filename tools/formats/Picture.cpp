#include "tools/formats/Picture.h"

#include "tools/terminal/ToolError.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <png.h>

namespace orx::tool {
namespace {

std::int64_t CeilingShare(std::int64_t length, std::int64_t parts) { return (length + parts - 1) / parts; }

/// First row of pixel y out of `pixels`, or column of pixel x.
std::int64_t RangeStart(std::int64_t pixel, std::int64_t length, std::int64_t pixels) {
  return CeilingShare(pixel * length, pixels);
}

std::int64_t RangeLength(std::int64_t pixel, std::int64_t length, std::int64_t pixels) {
  return RangeStart(pixel + 1, length, pixels) - RangeStart(pixel, length, pixels);
}

/// U+2800 with the bits of eight dots, in UTF-8.
std::string BrailleCharacter(unsigned dots) {
  return {static_cast<char>(0xE2), static_cast<char>(0xA0 | (dots >> 6)),
          static_cast<char>(0x80 | (dots & 0x3F))};
}

unsigned DotsOfCell(Raster const& raster, int left, int top) {
  // The eighth dots were added to a pattern of six, hence the order.
  constexpr unsigned bits[4][2] = {{0x01, 0x08}, {0x02, 0x10}, {0x04, 0x20}, {0x40, 0x80}};
  unsigned dots = 0;
  for (int y = 0; y < 4 && top + y < raster.height; ++y)
    for (int x = 0; x < 2 && left + x < raster.width; ++x)
      if (raster.Shade(left + x, top + y) > 0.0) dots |= bits[y][x];
  return dots;
}

std::uint8_t Grey(double shade) {
  constexpr double lightest = 208.0; // far enough from white to be seen as one pixel
  return shade > 0.0 ? static_cast<std::uint8_t>(std::lround(lightest * (1.0 - shade))) : 255;
}

} // namespace

Raster Rasterize(ORXSrvSparseMatrix const& matrix, int width, int height) {
  Raster raster{width, height, std::vector<double>(static_cast<std::size_t>(width) * height, 0.0)};
  ForEachEntry(matrix.View(), [&](std::int64_t row, std::int64_t column, double) {
    auto const x = column * width / matrix.NumberOfColumns();
    auto const y = row * height / matrix.NumberOfRows();
    raster.shades[y * width + x] += 1.0;
  });
  double densest = 0.0;
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      double const positions = static_cast<double>(RangeLength(y, matrix.NumberOfRows(), height)) *
                               static_cast<double>(RangeLength(x, matrix.NumberOfColumns(), width));
      double& shade = raster.shades[static_cast<std::size_t>(y) * width + x];
      shade /= positions;
      densest = std::max(densest, shade);
    }
  if (densest > 0.0)
    for (double& shade : raster.shades)
      shade = std::sqrt(shade / densest);
  return raster;
}

PictureSize FitPicture(int rows, int columns, PictureSize const& limits, int pixelAspect) {
  if (rows == 0 || columns == 0) return {0, 0};
  if (rows <= limits.height && columns <= limits.width) return {columns, rows};
  // In units of a row's height, were a column as wide as a pixel is high.
  std::int64_t const wide = std::int64_t{columns} * pixelAspect;
  std::int64_t const high = rows;
  std::int64_t const heightAtFullWidth = CeilingShare(high * limits.width, wide);
  bool const isWide = heightAtFullWidth <= limits.height;
  std::int64_t const height = isWide ? heightAtFullWidth : limits.height;
  std::int64_t const width = isWide ? limits.width : CeilingShare(wide * limits.height, high);
  return {static_cast<int>(std::min<std::int64_t>(width, columns)),
          static_cast<int>(std::min<std::int64_t>(height, rows))};
}

std::string AsciiPicture(Raster const& raster) {
  constexpr char levels[] = ".:+*#";
  std::string const edge = '+' + std::string(static_cast<std::size_t>(raster.width), '-') + "+\n";
  std::string text = edge;
  for (int y = 0; y < raster.height; ++y) {
    text += '|';
    for (int x = 0; x < raster.width; ++x) {
      double const shade = raster.Shade(x, y);
      text += shade > 0.0 ? levels[std::lround(shade * 4)] : ' ';
    }
    text += "|\n";
  }
  return text + edge;
}

std::string BraillePicture(Raster const& raster) {
  std::string edge;
  for (int left = 0; left < raster.width; left += 2)
    edge += "─";
  std::string text = "┌";
  text += edge + "┐\n";
  for (int top = 0; top < raster.height; top += 4) {
    text += "│";
    for (int left = 0; left < raster.width; left += 2)
      text += BrailleCharacter(DotsOfCell(raster, left, top));
    text += "│\n";
  }
  return text + "└" + edge + "┘\n";
}

void WritePng(std::string const& path, Raster const& raster, int magnification) {
  auto const width = static_cast<std::size_t>(raster.width) * magnification;
  auto const height = static_cast<std::size_t>(raster.height) * magnification;
  std::vector<png_byte> greys(width * height);
  for (std::size_t y = 0; y < height; ++y)
    for (std::size_t x = 0; x < width; ++x)
      greys[y * width + x] =
          Grey(raster.Shade(static_cast<int>(x) / magnification, static_cast<int>(y) / magnification));
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  image.width = static_cast<png_uint_32>(width);
  image.height = static_cast<png_uint_32>(height);
  image.format = PNG_FORMAT_GRAY;
  if (png_image_write_to_file(&image, path.c_str(), 0, greys.data(), 0, nullptr) == 0)
    throw ToolError(ExitCode::Failure, "cannot write '" + path + "': " + image.message);
}

} // namespace orx::tool
