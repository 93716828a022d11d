#ifndef ORXSRV_LAST_ERROR_H
#define ORXSRV_LAST_ERROR_H

/*
 * What went wrong, for solver code in Fortran or C. The entry points raise C++ exceptions, which leave them
 * through the code that called them; a C++ host catches them. Code that cannot catch runs what may fail as a
 * procedure of its own:
 *
 *     void read_modes(void* data) { ORXSRVMATRIXCONTAINERGETVALUES(...); ... }
 *     if (ORXSRVTRY(read_modes, data) != 0) { ORXSRVLASTERROR(text, &length); ... }
 *
 * Frames of Fortran or C that an exception leaves are dropped: memory that they had allocated stays
 * allocated. One text for the process; used from one thread.
 */

#include "core/orx_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Calls work(data). Returns 0, or what ended it: the number of the library's error, -1 for anything else. */
ORX_EXPORT int ORXSRVTRY(void (*work)(void*), void* data);

/*
 * The text of the last exception that left an entry point or ended an ORXSRVTRY, cut to *length - 1
 * characters and ended by a zero; empty when there was none. Returns its full length.
 */
ORX_EXPORT int ORXSRVLASTERROR(char* text, int const* length);

#ifdef __cplusplus
}
#endif

#endif
