#pragma once

#include "core/ORXBasException.h"
#include "core/atr_String.h"
#include "core/orx_export.h"

/// A matrix file could not be opened, or its content is not a matrix of its format. Error code 202,
/// "ORXSrvSparseImExPorter: Failed to open file %s."
class ORX_EXPORT ORXSrvMtxOpenFileException : public ORXBasException {
public:
  /// `path` is copied. For a file that was opened but could not be read as its format, the text continues
  /// after the path with the line, what was expected and what was found.
  explicit ORXSrvMtxOpenFileException(char const* path);
  ORXSrvMtxOpenFileException(ORXSrvMtxOpenFileException const&) noexcept = default;
  ~ORXSrvMtxOpenFileException() override;
  atr_String AsString() const override;
  [[noreturn]] void Raise() const override;
  int ErrorCode() const override;

private:
  atr_String m_path;
};
