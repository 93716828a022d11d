#pragma once

#include "core/orx_export.h"

// Start and stop of the library. A host calls ORXSrvLinearAlgebra_initialize before anything else and
// ORXSrvLinearAlgebra_finalize at the end, with a tally that starts at 0:
//
//     int tally = 0;
//     ORXSrvLinearAlgebra_initialize(tally);    // tally counts the modules that are up
//     ...
//     ORXSrvLinearAlgebra_finalize(tally);      // 0 again
//
// Calls are counted: n starts need n stops, and only the outermost pair does work.

/// Starts the core utilities, the basic utilities, the Unicode strings, the simulation containers, the
/// simulation database, the service basics, the BLAS/LAPACK layer and the matrix layer, in this order. Until
/// the last stop, an error of the library that nobody catches prints its text on standard error; then the
/// terminate handler that the host had set before goes on.
ORX_EXPORT void ORXSrvLinearAlgebra_initialize(int& tally);
/// Stops them in reverse order.
ORX_EXPORT void ORXSrvLinearAlgebra_finalize(int& tally);

/// The library is up as long as an object of this class lives; objects may nest.
class ORXSrvLinearAlgebraSession {
public:
  ORXSrvLinearAlgebraSession() { ORXSrvLinearAlgebra_initialize(m_tally); }
  ORXSrvLinearAlgebraSession(ORXSrvLinearAlgebraSession const&) = delete;
  ORXSrvLinearAlgebraSession& operator=(ORXSrvLinearAlgebraSession const&) = delete;
  ~ORXSrvLinearAlgebraSession() { ORXSrvLinearAlgebra_finalize(m_tally); }

private:
  int m_tally = 0;
};

/// The matrix layer. Stopping it destroys the process timer.
ORX_EXPORT void mtx_initialize(int& tally);
ORX_EXPORT void mtx_finalize(int& tally);

/// The BLAS/LAPACK layer.
ORX_EXPORT void blaC_initialize(int& tally);
ORX_EXPORT void blaC_finalize(int& tally);
/// Does nothing; kept for hosts that call it.
ORX_EXPORT void blaC_formalize();
