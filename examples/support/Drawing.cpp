#include "examples/support/Drawing.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace support {
namespace {

constexpr char textStyles[] = R"(<style>
text{font-family:system-ui,-apple-system,'Segoe UI',Roboto,'DejaVu Sans',Arial,sans-serif}
text{font-size:205px;fill:#1f2933}
.heading{font-size:320px;font-weight:600}
.strong{font-weight:600}
.soft{fill:#6b7785}
.end{text-anchor:end}
.middle{text-anchor:middle}
path{stroke-linecap:round;stroke-linejoin:round}
)";

} // namespace

std::string BeginPage(int width, int height, char const* title, char const* styles) {
  // A background of its own: the picture looks the same on light and on dark pages.
  return Format("<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 %d %d\" width=\"%d\" "
                "height=\"%d\">\n<title>%s</title>\n",
                width, height, width / 10, height / 10, title) +
         textStyles + styles +
         "</style>\n<rect width=\"100%\" height=\"100%\" rx=\"160\" fill=\"#fbfcfd\"/>\n";
}

std::string EndPage() { return "</svg>\n"; }

std::string PathElement(char const* attributes, SvgPath const& path) {
  return std::string("<path ") + attributes + " d=\"" + path.Data() + "\"/>\n";
}

// Nine colours of equal perceived distance from dark to light: neighbours are 0.085 apart in the OKLab colour
// space, and lightness rises by the same 0.07 at each step. In between, straight interpolation.
std::string Colour(double displacement, double brightness) {
  struct Rgb {
    int r, g, b;
  };
  constexpr std::array<Rgb, 9> anchors{{{0x41, 0x33, 0x7d},
                                        {0x32, 0x51, 0x97},
                                        {0x11, 0x6f, 0xa3},
                                        {0x14, 0x8b, 0xa4},
                                        {0x36, 0xa6, 0xa2},
                                        {0x52, 0xc0, 0x9a},
                                        {0x86, 0xd4, 0x87},
                                        {0xc3, 0xe1, 0x74},
                                        {0xfe, 0xea, 0x6e}}};
  double const place = displacement * (anchors.size() - 1);
  int const below = std::min(static_cast<int>(place), static_cast<int>(anchors.size()) - 2);
  auto const mixed = [&](int Rgb::*channel) {
    double const low = anchors[below].*channel;
    double const high = anchors[below + 1].*channel;
    return static_cast<int>(std::lround(brightness * (low + (place - below) * (high - low))));
  };
  return Format("#%02x%02x%02x", mixed(&Rgb::r), mixed(&Rgb::g), mixed(&Rgb::b));
}

std::string BandColour(int band) { return Colour((band + 0.5) / colourBands); }

std::string ColourBar(int middle, int top) {
  constexpr int bandWidth = 80;
  int const left = middle - colourBands * bandWidth / 2;
  int const right = left + colourBands * bandWidth;
  std::string svg;
  for (int band = 0; band < colourBands; ++band) { // each reaches below the next one, so that no seams show
    int const start = left + band * bandWidth;
    svg += Format("<path fill=\"%s\" d=\"M%d %dH%dv230H%dz\"/>\n", BandColour(band).c_str(), start, top,
                  std::min(start + 2 * bandWidth, right), start);
  }
  svg += Format("<text class=\"soft end\" x=\"%d\" y=\"%d\">0</text>\n", left - 110, top + 188);
  svg += Format("<text class=\"soft\" x=\"%d\" y=\"%d\">1</text>\n", right + 110, top + 188);
  svg += Format("<text class=\"soft middle\" x=\"%d\" y=\"%d\">displacement, relative to the largest of the "
                "mode</text>\n",
                middle, top + 560);
  return svg;
}

} // namespace support
