#ifndef ORXSRV_MATRIX_REGISTRY_H
#define ORXSRV_MATRIX_REGISTRY_H

/*
 * The registry of out-of-core matrices (mtx/ORXSrvMatrixContainer.h) for solver code in Fortran or C. A
 * container is known by its address, which is passed by value; identifiers are passed by address, as Fortran
 * does. The Fortran module has the interfaces.
 *
 * Errors leave these functions as C++ exceptions; see module/ORXSrvLastError.h for code that cannot catch
 * them.
 */

#include "core/orx_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A new container. It is the caller's until it is deleted. */
ORX_EXPORT void* ORXSRVMATRIXCONTAINERCREATE(void);
/* Number of rows, and of columns, of the matrix *id. */
ORX_EXPORT int ORXSRVMATRIXCONTAINERNUMROWS(void* container, int const* id);
ORX_EXPORT int ORXSRVMATRIXCONTAINERNUMCOLUMNS(void* container, int const* id);
/* All values of the matrix *id, column-major: `values` is dimensioned (rows, columns). */
ORX_EXPORT void ORXSRVMATRIXCONTAINERGETVALUES(void* container, int const* id, double* values);
/* Destroys a container with its matrices and its file; null is ignored. */
ORX_EXPORT void ORXSRVMATRIXCONTAINERDELETE(void* container);

#ifdef __cplusplus
}
#endif

#endif
