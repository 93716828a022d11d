#include "tools/commands/Spy.h"

#include "tools/commands/Info.h"
#include "tools/formats/OutputFile.h"
#include "tools/formats/Picture.h"
#include "tools/numerics/Symmetry.h"
#include "tools/terminal/Progress.h"
#include "tools/terminal/Text.h"
#include "tools/terminal/ToolError.h"

#include <algorithm>
#include <sys/ioctl.h>
#include <unistd.h>

namespace orx::tool {
namespace {

/// Characters of a line and lines that are free for the pattern, without its frame.
PictureSize RoomForText(int width) {
  constexpr int frame = 2;
  constexpr int linesBelow = 7; // the figures, and the next prompt
  constexpr int anyHeight = 1 << 20;
  winsize terminal{};
  bool const isTerminal = ioctl(STDOUT_FILENO, TIOCGWINSZ, &terminal) == 0 && terminal.ws_col > 0;
  int const columns = width > 0 ? width : isTerminal ? terminal.ws_col : 80;
  // A width that is asked for decides alone.
  int const lines = isTerminal && width == 0 ? terminal.ws_row - frame - linesBelow : anyHeight;
  return {std::max(columns - frame, 1), std::max(lines, 1)};
}

std::string ScaleText(ORXSrvSparseMatrix const& matrix, Raster const& raster, char const* pixel) {
  if (raster.width == matrix.NumberOfColumns() && raster.height == matrix.NumberOfRows())
    return Format("one position a %s", pixel);
  auto const most = [](int length, int pixels) { return (length + pixels - 1) / pixels; };
  return Format("up to %d rows x %d columns a %s", most(matrix.NumberOfRows(), raster.height),
                most(matrix.NumberOfColumns(), raster.width), pixel);
}

std::string FiguresText(ORXSrvSparseMatrix const& matrix) {
  Measures const measures = Measure(matrix);
  return Line("shape", Format("%d x %d", matrix.NumberOfRows(), matrix.NumberOfColumns())) +
         Line("stored entries", std::to_string(matrix.NumberOfNonzeros())) +
         Line("bandwidth", Format("lower %d, upper %d", measures.lowerBandwidth, measures.upperBandwidth)) +
         Line("symmetry", SymmetryText(MeasureSymmetry(matrix)));
}

std::string DrawText(ORXSrvSparseMatrix const& matrix, SpyOptions const& options) {
  PictureSize const room = RoomForText(options.width);
  // Characters are about twice as high as wide; the dots of a braille character are squares.
  PictureSize const size =
      options.isAscii
          ? FitPicture(matrix.NumberOfRows(), matrix.NumberOfColumns(), room, 2)
          : FitPicture(matrix.NumberOfRows(), matrix.NumberOfColumns(), {2 * room.width, 4 * room.height}, 1);
  Raster const raster = Rasterize(matrix, size.width, size.height);
  return (options.isAscii ? AsciiPicture(raster) : BraillePicture(raster)) +
         Line("scale", ScaleText(matrix, raster, options.isAscii ? "character" : "dot"));
}

std::string DrawPng(ORXSrvSparseMatrix const& matrix, SpyOptions const& options) {
  if (matrix.NumberOfRows() == 0 || matrix.NumberOfColumns() == 0)
    throw ToolError(ExitCode::UnusableInput,
                    "'" + options.path + "' is empty; a picture needs rows and columns");
  PictureSize const size =
      FitPicture(matrix.NumberOfRows(), matrix.NumberOfColumns(), {options.pngSize, options.pngSize}, 1);
  int const magnification = options.pngSize / std::max(size.width, size.height);
  Raster const raster = Rasterize(matrix, size.width, size.height);
  ReplacedFile file(options.pngPath);
  file.WriteWith([&](std::string const& path) { WritePng(path, raster, magnification); });
  file.ReplaceTarget();
  return Line("picture", Format("%s, %d x %d pixels", options.pngPath.c_str(), size.width * magnification,
                                size.height * magnification)) +
         Line("scale", ScaleText(matrix, raster, magnification > 1 ? "square" : "pixel"));
}

} // namespace

std::string SpyText(SpyOptions const& options) {
  ORXSrvSparseMatrix const matrix = LoadMatrix(options.path);
  Progress const progress("drawing " + options.path);
  return (options.pngPath.empty() ? DrawText(matrix, options) : DrawPng(matrix, options)) +
         FiguresText(matrix);
}

} // namespace orx::tool
