#pragma once

#include "examples/support/SvgPath.h"

#include <cstdio>
#include <string>

// What the pictures of mode shapes have in common. A unit of a picture is a tenth of a pixel, and whole
// numbers are precise enough.

namespace support {

/// printf into a string.
template<class... Arguments>
std::string Format(char const* format, Arguments... arguments) {
  std::string text(std::snprintf(nullptr, 0, format, arguments...), '\0');
  std::snprintf(text.data(), text.size() + 1, format, arguments...);
  return text;
}

/// The beginning of a document up to its background, with styles for text. `styles` of its own follow them.
std::string BeginPage(int width, int height, char const* title, char const* styles);
std::string EndPage();

std::string PathElement(char const* attributes, SvgPath const& path);

/// The colour of a displacement from 0 to 1, "#41337d" to "#feea6e", times a brightness from 0 to 1.
std::string Colour(double displacement, double brightness = 1.0);

/// Displacements are drawn in so many steps.
constexpr int colourBands = 60;
/// The colour of a band is that of its middle.
std::string BandColour(int band);
/// The colours from 0 to 1 in a bar of 800 units in height with its labels, around x = `middle`.
std::string ColourBar(int middle, int top);

} // namespace support
