#include "ToolSupport.h"

#include "tools/commands/Spy.h"
#include "tools/formats/Picture.h"

#include <png.h>

namespace {

using orx::tool::FitPicture;
using orx::tool::Rasterize;

/// What spy says of a pattern in characters.
std::string DrawnText(std::string const& path, bool isAscii, int width) {
  orx::tool::SpyOptions options;
  options.path = path;
  options.isAscii = isAscii;
  options.width = width;
  return orx::tool::SpyText(options);
}

std::string DrawnPng(std::string const& path, std::string const& pngPath, int pngSize) {
  orx::tool::SpyOptions options;
  options.path = path;
  options.pngPath = pngPath;
  options.pngSize = pngSize;
  return orx::tool::SpyText(options);
}

struct Png {
  int width = 0, height = 0;
  std::vector<png_byte> greys;
  int At(int x, int y) const { return greys[static_cast<std::size_t>(y) * width + x]; }
};

Png ReadPng(std::string const& path) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  if (png_image_begin_read_from_file(&image, path.c_str()) == 0) throw std::runtime_error(image.message);
  EXPECT_EQ(image.format & (PNG_FORMAT_FLAG_COLOR | PNG_FORMAT_FLAG_ALPHA), 0U);
  image.format = PNG_FORMAT_GRAY;
  Png png{static_cast<int>(image.width), static_cast<int>(image.height),
          std::vector<png_byte>(PNG_IMAGE_SIZE(image))};
  if (png_image_finish_read(&image, nullptr, png.greys.data(), 0, nullptr) == 0)
    throw std::runtime_error(image.message);
  return png;
}

TEST(Raster, ShadesAreRootsOfTheShareOfStoredPositions) {
  //  1 1 . . .     two pixels by two: columns 0-2 and 3-4, rows 0-1 and 2
  //  1 1 . . 1
  //  . . . 1 1
  auto const raster = Rasterize(Sparse({{1, 1, 0, 0, 0}, {1, 1, 0, 0, 1}, {0, 0, 0, 1, 1}}), 2, 2);

  EXPECT_EQ(raster.Shade(1, 1), 1.0) << "both positions are stored: the densest";
  EXPECT_DOUBLE_EQ(raster.Shade(0, 0), std::sqrt(4.0 / 6.0));
  EXPECT_DOUBLE_EQ(raster.Shade(1, 0), std::sqrt(1.0 / 4.0));
  EXPECT_EQ(raster.Shade(0, 1), 0.0);
}

TEST(Picture, DrawsDotsAndCharacters) {
  //  x . . . x
  //  . x . x .
  //  . . x . .
  //  . x . . .
  //  x . . . .
  auto const raster = Rasterize(
      Sparse({{1, 0, 0, 0, 1}, {0, 1, 0, 1, 0}, {0, 0, 1, 0, 0}, {0, 1, 0, 0, 0}, {1, 0, 0, 0, 0}}), 5, 5);

  EXPECT_EQ(orx::tool::BraillePicture(raster), "┌───┐\n"
                                               "│⢑⠔⠁│\n"
                                               "│⠁⠀⠀│\n"
                                               "└───┘\n");
  EXPECT_EQ(orx::tool::AsciiPicture(raster), "+-----+\n"
                                             "|#   #|\n"
                                             "| # # |\n"
                                             "|  #  |\n"
                                             "| #   |\n"
                                             "|#    |\n"
                                             "+-----+\n");
}

TEST(Picture, CharactersShowDensity) {
  //  16 positions a pixel with 1, 4, 9, 16 entries: roots 1/4 to 4/4
  std::vector<Entry> entries;
  for (std::uint32_t pixel = 0; pixel < 4; ++pixel)
    for (std::uint32_t k = 0; k < (pixel + 1) * (pixel + 1); ++k)
      entries.push_back({k / 4, 4 * pixel + k % 4, 1.0});

  EXPECT_EQ(orx::tool::AsciiPicture(Rasterize(Assembled(entries), 4, 1)), "+----+\n|:+*#|\n+----+\n");
}

TEST(Spy, PrintsThePatternAndItsFigures) {
  TemporaryFolder const folder;
  std::string const path = folder.Write("a.txt", "1 1 2\n2 1 -1\n2 2 2\n3 1 5\n1 2 -1\n1 3 5\n");

  EXPECT_EQ(RunTool("spy --ascii '" + path + "'").out, "+---+\n"
                                                       "|###|\n"
                                                       "|## |\n"
                                                       "|#  |\n"
                                                       "+---+\n"
                                                       "scale:               one position a character\n"
                                                       "shape:               3 x 3\n"
                                                       "stored entries:      6\n"
                                                       "bandwidth:           lower 2, upper 2\n"
                                                       "symmetry:            exactly symmetric\n");
}

TEST(Spy, WidthAndScale) {
  TemporaryFolder const folder;
  std::string diagonal;
  for (int i = 1; i <= 100; ++i)
    diagonal += orx::tool::Format("%d %d 1\n", i, i);
  std::string const path = folder.Write("a.txt", diagonal);

  std::string const text = DrawnText(path, true, 12);

  EXPECT_CONTAINS(text,
                  "+----------+\n|##        |\n|  ##      |\n|    ##    |\n|      ##  |\n|        ##|\n");
  EXPECT_CONTAINS(text, "up to 20 rows x 10 columns a character");
  EXPECT_CONTAINS(DrawnText(path, false, 12), "up to 5 rows x 5 columns a dot");
  EXPECT_CONTAINS(DrawnText(folder.Write("empty.txt", ""), false, 0), "0 x 0");
}

TEST(Spy, PngOfASmallMatrixHasASquareAPosition) {
  TemporaryFolder const folder;
  std::string const path = folder.Write("a.txt", "1 1 2\n2 3 1\n");

  std::string const text = DrawnPng(path, folder.Path("a.png"), 100);

  EXPECT_CONTAINS(text, "a.png, 99 x 66 pixels\nscale:               one position a square\n");
  Png const png = ReadPng(folder.Path("a.png"));
  EXPECT_EQ(png.width, 99);
  EXPECT_EQ(png.height, 66);
  EXPECT_EQ(png.At(0, 0), 0);
  EXPECT_EQ(png.At(32, 32), 0);
  EXPECT_EQ(png.At(33, 32), 255);
  EXPECT_EQ(png.At(32, 33), 255);
  EXPECT_EQ(png.At(98, 65), 0);
}

TEST(Spy, PngThatCannotBeWrittenIsExitCode3) {
  TemporaryFolder const folder;
  std::string const path = folder.Write("a.txt", "1 1 2\n");

  RunResult const result = RunTool("spy '" + path + "' --png '" + folder.Path("none/a.png") + "'");

  EXPECT_EQ(result.exitCode, 3);
  EXPECT_CONTAINS(result.err, "none/a.png': No such file or directory");
  EXPECT_CONTAINS(Ending([&] { DrawnPng(folder.Write("empty.txt", ""), folder.Path("a.png"), 100); }),
                  "is empty");
}

} // namespace
