#pragma once

#include "core/ORXBasException.h"
#include "core/atr_String.h"
#include "core/atr_translate.h"
#include "core/orx_export.h"

// The errors that the matrix classes raise, one class for each error number. Hosts catch them as
// ORXBasException and tell them apart by ErrorCode; only their type information is exported.
// ORXSrvMtxOpenFileException (202) has a public header of its own. 205, 216 and 217 are not assigned.

namespace orx {
/// Source files that errors report, as hosts know them: one for each class, whatever file the code lies in.
inline constexpr char denseMatrixSource[] = "mtx/impl/ORXSrvDenseMatrix.cpp";
inline constexpr char matrixSource[] = "mtx/impl/ORXSrvMatrix.cpp";
inline constexpr char sparseMatrixSource[] = "mtx/impl/ORXSrvSparseMatrix.cpp";
inline constexpr char exchangeSource[] = "mtx/impl/ORXSrvSparseImExPorter.cpp";
} // namespace orx

/// Returns the message of a template: without argument, with a text, or with an integer.
atr_String ORXSrvMtxMessage(char const* messageTemplate);
atr_String ORXSrvMtxMessage(char const* messageTemplate, atr_String const& argument);
atr_String ORXSrvMtxMessage(char const* messageTemplate, int argument);

class ORX_EXPORT ORXSrvMtxNoSymmetricTrue : public ORXBasException {
public:
  explicit ORXSrvMtxNoSymmetricTrue(char const* operation)
      : m_operation(ORXSrvMtxMessage("%s", atr_String(operation))) {}
  atr_String AsString() const override {
    return ORXSrvMtxMessage("ORXSrvSparseMatrix::%s symmetric:True not supported!", m_operation);
  }
  [[noreturn]] void Raise() const override { throw *this; }
  int ErrorCode() const override { return 201; }

private:
  atr_String m_operation;
};

class ORX_EXPORT ORXSrvMtxInvalidGetRange : public ORXBasException {
public:
  atr_String AsString() const override {
    return ORXSrvMtxMessage("ORXSrvDenseMatrix::GetValues invalid range values.");
  }
  [[noreturn]] void Raise() const override { throw *this; }
  int ErrorCode() const override { return 203; }
};

class ORX_EXPORT ORXSrvMtxInvalidSetRange : public ORXBasException {
public:
  atr_String AsString() const override {
    return ORXSrvMtxMessage("ORXSrvDenseMatrix::SetValues invalid range values.");
  }
  [[noreturn]] void Raise() const override { throw *this; }
  int ErrorCode() const override { return 204; }
};

/// Values for cells of a symmetric block matrix that differ from those for their mirror images.
class ORX_EXPORT ORXSrvMtxMirrorsDiffer : public ORXSrvMtxInvalidSetRange {
public:
  explicit ORXSrvMtxMirrorsDiffer(char const* text) : m_text(ORXSrvMtxMessage("%s", atr_String(text))) {}
  atr_String AsString() const override {
    return ORXSrvMtxMessage("ORXSrvDenseMatrix::SetValues invalid range values. %s", m_text);
  }
  [[noreturn]] void Raise() const override { throw *this; }

private:
  atr_String m_text;
};

class ORX_EXPORT ORXSrvMtxIllegalInput : public ORXBasException {
public:
  explicit ORXSrvMtxIllegalInput(char const* operation)
      : m_operation(ORXSrvMtxMessage("%s", atr_String(operation))) {}
  atr_String AsString() const override {
    return ORXSrvMtxMessage("ORXSrvMatrix::%s - Illegal input.", m_operation);
  }
  [[noreturn]] void Raise() const override { throw *this; }
  int ErrorCode() const override { return 206; }

private:
  atr_String m_operation;
};

class ORX_EXPORT ORXSrvMtxUnsupportedExpFmt : public ORXBasException {
public:
  atr_String AsString() const override {
    return ORXSrvMtxMessage("ORXSrvSparseImExPorter: Unsupported export format.");
  }
  [[noreturn]] void Raise() const override { throw *this; }
  int ErrorCode() const override { return 207; }
};

class ORX_EXPORT ORXSrvMtxFileWriteFailure : public ORXBasException {
public:
  explicit ORXSrvMtxFileWriteFailure(char const* text) : m_text(ORXSrvMtxMessage("%s", atr_String(text))) {}
  atr_String AsString() const override { return ORXSrvMtxMessage("Error at writing to file: %s", m_text); }
  [[noreturn]] void Raise() const override { throw *this; }
  int ErrorCode() const override { return 208; }

private:
  atr_String m_text;
};

class ORX_EXPORT ORXSrvMtxNoUnsymmetric : public ORXBasException {
public:
  /// The "%s" stays in the text: this error has no argument for it, and hosts know the text.
  atr_String AsString() const override {
    return ORXSrvMtxMessage("ORXSrvSparseMatrix::%s symmetric:True not supported!");
  }
  [[noreturn]] void Raise() const override { throw *this; }
  int ErrorCode() const override { return 209; }
};

class ORX_EXPORT ORXSrvMtxUnsupportedImpFmt : public ORXBasException {
public:
  atr_String AsString() const override {
    return ORXSrvMtxMessage("ORXSrvSparseImExPorter: Unsupported import format.");
  }
  [[noreturn]] void Raise() const override { throw *this; }
  int ErrorCode() const override { return 210; }
};

class ORX_EXPORT ORXSrvMtxNoTranspose : public ORXBasException {
public:
  atr_String AsString() const override {
    return ORXSrvMtxMessage("ORXSrvSparseMatrix::MultiplyIndexed transpose:False not supported!");
  }
  [[noreturn]] void Raise() const override { throw *this; }
  int ErrorCode() const override { return 211; }
};

class ORX_EXPORT ORXSrvMtxIllegalPermVect : public ORXBasException {
public:
  atr_String AsString() const override {
    return ORXSrvMtxMessage("ORXSrvMatrix::PermuteRowsInPlace - Illegal perm Vector.");
  }
  [[noreturn]] void Raise() const override { throw *this; }
  int ErrorCode() const override { return 212; }
};

class ORX_EXPORT ORXSrvMtxSolveIllegalArg : public ORXBasException {
public:
  /// `argument` is the one-based position of the argument that LAPACK's DSYGV refuses.
  explicit ORXSrvMtxSolveIllegalArg(int argument) : m_argument(argument) {}
  atr_String AsString() const override {
    return ORXSrvMtxMessage("ORXSrvMatrix::SolveEigenproblemSymmetric - Illegal function argument %i.",
                            m_argument);
  }
  [[noreturn]] void Raise() const override { throw *this; }
  int ErrorCode() const override { return 213; }

private:
  int m_argument;
};

class ORX_EXPORT ORXSrvMtxSolveNotConverge : public ORXBasException {
public:
  atr_String AsString() const override {
    return ORXSrvMtxMessage("ORXSrvMatrix::SolveEigenproblemSymmetric - Eigensolver did not converge.");
  }
  [[noreturn]] void Raise() const override { throw *this; }
  int ErrorCode() const override { return 214; }
};

class ORX_EXPORT ORXSrvMtxSolveNotPositive : public ORXBasException {
public:
  atr_String AsString() const override {
    return ORXSrvMtxMessage("ORXSrvMatrix::SolveEigenproblemSymmetric - Matrix B is not positive-definite.");
  }
  [[noreturn]] void Raise() const override { throw *this; }
  int ErrorCode() const override { return 215; }
};

class ORX_EXPORT ORXSrvMtxDivByZero : public ORXBasException {
public:
  atr_String AsString() const override {
    return ORXSrvMtxMessage("ORXSrvMatrix::Factorize - division by 0.");
  }
  [[noreturn]] void Raise() const override { throw *this; }
  int ErrorCode() const override { return 218; }
};
