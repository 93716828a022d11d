#pragma once

class ORXSrvSparseMatrix;

/// Reads and writes sparse matrices as files, by format code. Holds no state: made for one call.
class ORXSrvSparseImExPorter {
public:
  /// Replaces the content of `matrix`; on failure it is as before.
  void Import(ORXSrvSparseMatrix& matrix, char const* path, int format) const;
  void Export(ORXSrvSparseMatrix const& matrix, char const* path, int format) const;

private:
  static void ImportTextTriplets(ORXSrvSparseMatrix& matrix, char const* path, char const* mode);
  static void ExportTextTriplets(ORXSrvSparseMatrix const& matrix, char const* path);
};
