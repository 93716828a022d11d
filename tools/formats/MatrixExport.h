#pragma once

#include "tools/formats/MatrixFile.h"

#include <string>

namespace orx::tool {

/// What of a symmetric matrix goes into a file.
enum class Triangle {
  AsStored, ///< no matrix is taken for symmetric that is not
  Lower,
  Upper,
  Full
};

struct WriteOptions {
  FileKind kind = FileKind::Triplets;
  Triangle triangle = Triangle::AsStored;
  int dofsPerNode = 0; ///< of text by nodes
  int digits = 16;     ///< of values in text without a header: 16, or 17, which give the same double back
  bool isLargeAllowed = false; ///< a file of gigabytes that are nearly all zeros
};

/// Writes a matrix as a file of any type. With a triangle other than AsStored it is symmetric, with both
/// triangles, and that one is stored; types for symmetric matrices stand for both triangles all the same.
/// What does not suit the type is a ToolError, before anything is written.
void SaveMatrix(std::string const& path, ORXSrvSparseMatrix const& matrix, WriteOptions const& options);

} // namespace orx::tool
