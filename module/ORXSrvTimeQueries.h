#ifndef ORXSRV_TIME_QUERIES_H
#define ORXSRV_TIME_QUERIES_H

/*
 * The process timer for solver code in Fortran or C. The host starts it, once the library is up:
 *
 *     omi_Singleton<ORXSrvTimer>::Instance().CreateTimer();
 *
 * Both queries give seconds since then, and 0 before. The Fortran module has the interfaces.
 */

#include "core/orx_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* *t = processor time of the whole process, user and system. */
ORX_EXPORT void ORXSRVGETCPUTIME(double* t);
/* *t = elapsed wall-clock time. */
ORX_EXPORT void ORXSRVGETWALLTIME(double* t);

#ifdef __cplusplus
}
#endif

#endif
