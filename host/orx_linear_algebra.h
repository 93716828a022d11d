#ifndef ORX_LINEAR_ALGEBRA_H
#define ORX_LINEAR_ALGEBRA_H

/*
 * The library for solver code in C and Fortran: all that a module needs from the mesh to the modes. Link with
 * liborx_host (pkg-config orx_host, or ORX::Host). The Fortran module orx_linear_algebra is made of this
 * header: its procedures have the names below, in lower case as Fortran users write them.
 *
 *     C                                             Fortran
 *     orx_sparse_matrix k;                          integer(orx_handle) :: k
 *     ORX_START(&stat);                             call orx_start()
 *     ORX_SPARSE_CREATE(&n, &n, &k, &stat);         call orx_sparse_create(n, n, k)
 *     ORX_SPARSE_ADD_ELEMENT(&k, &m, d, ke, &stat); call orx_sparse_add_element(k, m, d, ke)
 *     ORX_SPARSE_END(&k, &stat);                    call orx_sparse_end(k)
 *     ORX_FACTOR_CREATE(&f, &stat);                 call orx_factor_create(f)
 *     ORX_FACTOR_FACTORIZE(&f, &k, &stat);          call orx_factor_factorize(f, k)
 *     ORX_FACTOR_SOLVE(&f, &one, x, &stat);         call orx_factor_solve(f, 1, x)
 *     ORX_STOP(&stat);                              call orx_stop()
 *
 * Every argument is passed by address. Integers have 32 bits, handles and numbers of bytes 64. Texts are
 * passed as they are in the language: ended by a zero in C, a character string in Fortran, whose trailing
 * blanks do not count. Unknowns, rows, columns and numbers count from 1, ranges include both ends; the arrays
 * of ORX_SPARSE_ARRAYS alone are the library's own, which count from 0. Matrices in arrays are stored by
 * columns without gaps, and so are vectors. Arrays are trusted to be large enough. A flag is 0 for no and 1
 * for yes.
 *
 * Objects live in a table of the library; a handle is a position in it with a number that no other object
 * of the process gets. A handle of 0, of a deleted object, of an object of another kind or of another origin
 * is error 501. ORX_DELETE ends an object; one that others need (the matrices of an ORX_MODES) lives until
 * these are deleted too.
 *
 * Errors. `stat` is 0, or the number of the error (docs/errors.md; -1 for an error that is not the
 * library's, such as exhausted memory), whose text ORXSRVLASTERROR tells, in Fortran orx_last_error(). A call
 * that fails changes neither its objects nor its results, unless stated otherwise. Without `stat`, which is
 * null in C and left out in Fortran, an error prints its text on standard error and ends the program with
 * exit code 1. No exception leaves a function, unless ORX_RAISE_ERRORS asks for that.
 *
 * All calls come from one thread.
 */

#include "blac/BLAC.h"
#include "core/orx_export.h"
#include "module/ORXSrvLastError.h"
#include "module/ORXSrvMatrixRegistry.h"
#include "module/ORXSrvTimeQueries.h"

#include <stdint.h>

/* This argument may be null, in Fortran left out; stat may always. */
#define ORX_OPTIONAL

#ifdef __cplusplus
extern "C" {
#endif

typedef int64_t orx_handle;           /* of an object of any kind */
typedef orx_handle orx_database;      /* an open database file */
typedef orx_handle orx_registry;      /* block matrices by identifier, in a scratch file */
typedef orx_handle orx_block_matrix;  /* a dense matrix out of core */
typedef orx_handle orx_sparse_matrix; /* a sparse matrix in memory */
typedef orx_handle orx_factor;        /* a factorization of a sparse matrix */
typedef orx_handle orx_modes;         /* modes of two sparse matrices */

/*
 * Watches long operations: `done` of `total` parts of an operation are done, on the thread that called it.
 * Returns 0 to go on; anything else stops the operation, which then ends with error 301. The functions below
 * refuse to be called from it (error 503).
 */
typedef int (*orx_progress)(void* context, char const* operation, int64_t const* done, int64_t const* total);

/* ---- Start, stop, settings */

/* Starts the library. Starts are counted, and may be mixed with those of C++ parts of the host. */
ORX_EXPORT void ORX_START(int* stat);
/*
 * Stops it. The last stop, the one that matches the first start, deletes all objects that are left. A stop
 * without a start is error 503.
 */
ORX_EXPORT void ORX_STOP(int* stat);
/* The version of the library. */
ORX_EXPORT void ORX_VERSION(int* major, int* minor, int* patch, int* stat);
/*
 * With `raise` 1, errors leave the functions as C++ exceptions, with or without stat, for a host in C++ that
 * catches them further up; with 0, as at first, they do not.
 */
ORX_EXPORT void ORX_RAISE_ERRORS(int const* raise, int* stat);
/* Starts the process timer that ORXSRVGETCPUTIME and ORXSRVGETWALLTIME read; a second call starts it anew. */
ORX_EXPORT void ORX_START_TIMER(int* stat);
/*
 * Memory in bytes that a product of block matrices or a factorization may work with; 0 sets it back to half
 * of what the process may have. It counts when an operation begins, for all whose object has no memory of its
 * own (ORX_FACTOR_SET_MEMORY, ORX_MODES_SET_MEMORY).
 */
ORX_EXPORT void ORX_SET_MEMORY(int64_t const* bytes, int* stat);
ORX_EXPORT void ORX_GET_MEMORY(int64_t* bytes, int* stat);
/* `function` watches long operations from now on, with `context` as its first argument; null ends this. */
ORX_EXPORT void ORX_SET_PROGRESS(orx_progress function, void* context, int* stat);
/* Deletes an object of any kind, and sets the handle to 0. A database is closed as a killed program leaves
 * it. */
ORX_EXPORT void ORX_DELETE(orx_handle* object, int* stat);
/* Number of objects that are alive. */
ORX_EXPORT void ORX_COUNT_OBJECTS(int* count, int* stat);

/* ---- Databases */

/* Creates a database file; with `replace`, in the place of one that is there. */
ORX_EXPORT void ORX_DATABASE_CREATE(char const path[], int const* replace, orx_database* database, int* stat);
ORX_EXPORT void ORX_DATABASE_OPEN(char const path[], int const* read_only, orx_database* database, int* stat);
/*
 * Writes what is not committed yet, closes the file, and sets the handle to 0. An open transaction is
 * abandoned. After an error the database is open as before. Matrices of the database are of no use any more
 * (error 10).
 */
ORX_EXPORT void ORX_DATABASE_CLOSE(orx_database* database, int* stat);
/*
 * A transaction brackets new matrices: committed, they are in the file for good, with all values written so
 * far; abandoned, they have never been there. Values of older matrices are not taken back. Without a
 * transaction each new matrix is committed at once.
 */
ORX_EXPORT void ORX_DATABASE_BEGIN(orx_database const* database, int* stat);
ORX_EXPORT void ORX_DATABASE_COMMIT(orx_database const* database, int* stat);
ORX_EXPORT void ORX_DATABASE_ABANDON(orx_database const* database, int* stat);
/*
 * Adds a block matrix of zeros with a name of 1 to 255 characters, cut into blocks of row_block rows and
 * column_block columns; its labels are 0, 1, 2, ... unless they are given.
 */
ORX_EXPORT void ORX_DATABASE_ADD(orx_database const* database, char const name[], int const* rows,
                                 int const* columns, int const* row_block, int const* column_block,
                                 int const row_labels[] ORX_OPTIONAL, int const column_labels[] ORX_OPTIONAL,
                                 orx_block_matrix* matrix, int* stat);
/* The block matrix of this name. No matrix, or several, are error 502. */
ORX_EXPORT void ORX_DATABASE_MATRIX(orx_database const* database, char const name[], orx_block_matrix* matrix,
                                    int* stat);
/*
 * The block matrix of this number: the order of creation, vectors and other distributions counted, from 1.
 * (orxmtx db lists them from 0.)
 */
ORX_EXPORT void ORX_DATABASE_MATRIX_AT(orx_database const* database, int const* number,
                                       orx_block_matrix* matrix, int* stat);
/* The highest number. */
ORX_EXPORT void ORX_DATABASE_COUNT(orx_database const* database, int* count, int* stat);

/* ---- Registry of block matrices */

ORX_EXPORT void ORX_REGISTRY_CREATE(orx_registry* registry, int* stat);
/*
 * A handle on a registry that another part of the host owns: the address of an ORXSrvMatrixContainer, which
 * lives longer than the handle. Deleting the handle leaves the registry as it is.
 */
ORX_EXPORT void ORX_REGISTRY_ADOPT(void* const* address, orx_registry* registry, int* stat);
/* The address, for ORXSRVMATRIXCONTAINERGETVALUES and its like. The registry stays the handle's. */
ORX_EXPORT void ORX_REGISTRY_ADDRESS(orx_registry const* registry, void** address, int* stat);
/* Registers a block matrix of zeros, see ORX_DATABASE_ADD. An identifier that was ever in use is error 502.
 */
ORX_EXPORT void ORX_REGISTRY_ADD(orx_registry const* registry, int const* id, int const* rows,
                                 int const* columns, int const* row_block, int const* column_block,
                                 int const row_labels[] ORX_OPTIONAL, int const column_labels[] ORX_OPTIONAL,
                                 int* stat);
/* The matrix of an identifier. Its handle is of no use after the matrix was removed. */
ORX_EXPORT void ORX_REGISTRY_MATRIX(orx_registry const* registry, int const* id, orx_block_matrix* matrix,
                                    int* stat);
/* Destroys the matrix of an identifier, which is not free again. */
ORX_EXPORT void ORX_REGISTRY_REMOVE(orx_registry const* registry, int const* id, int* stat);

/* ---- Block matrices: dense, out of core */

/* A matrix of zeros in a scratch file of its own. */
ORX_EXPORT void ORX_BLOCK_CREATE(int const* rows, int const* columns, int const* row_block,
                                 int const* column_block, orx_block_matrix* matrix, int* stat);
/*
 * A symmetric matrix of zeros, of which a scratch file keeps one triangle of square blocks. Each value that
 * is set is also set at its mirrored place; a rectangle that holds both places of a value has it twice, else
 * error 204.
 */
ORX_EXPORT void ORX_BLOCK_CREATE_SYMMETRIC(int const* order, int const* block, orx_block_matrix* matrix,
                                           int* stat);
ORX_EXPORT void ORX_BLOCK_SHAPE(orx_block_matrix const* matrix, int* rows, int* columns, int* stat);
/* Writes and reads a rectangle of values. */
ORX_EXPORT void ORX_BLOCK_SET(orx_block_matrix const* matrix, int const* first_row, int const* last_row,
                              int const* first_column, int const* last_column, double const values[],
                              int* stat);
ORX_EXPORT void ORX_BLOCK_GET(orx_block_matrix const* matrix, int const* first_row, int const* last_row,
                              int const* first_column, int const* last_column, double values[], int* stat);
/* target = source, of the same shape. */
ORX_EXPORT void ORX_BLOCK_COPY(orx_block_matrix const* source, orx_block_matrix const* target, int* stat);
/* matrix = factor * matrix */
ORX_EXPORT void ORX_BLOCK_SCALE(orx_block_matrix const* matrix, double const* factor, int* stat);
/* matrix = matrix + other, of the same shape */
ORX_EXPORT void ORX_BLOCK_ADD(orx_block_matrix const* matrix, orx_block_matrix const* other, int* stat);
/* y = A * x, or A^T * x with `transpose`, for n vectors; y does not overlap x. */
ORX_EXPORT void ORX_BLOCK_APPLY(orx_block_matrix const* a, int const* transpose, int const* n,
                                double const x[], double y[], int* stat);
/* C = A * B, or A^T * B with `transpose`, block by block. An error leaves the blocks of C that were finished.
 */
ORX_EXPORT void ORX_BLOCK_MULTIPLY(orx_block_matrix const* a, int const* transpose, orx_block_matrix const* b,
                                   orx_block_matrix const* c, int* stat);

/* ---- Sparse matrices */

/* An empty matrix under assembly. It grows when an entry lies outside. */
ORX_EXPORT void ORX_SPARSE_CREATE(int const* rows, int const* columns, orx_sparse_matrix* matrix, int* stat);
/* Adds one entry. Entries at one position are summed; zeros are kept. */
ORX_EXPORT void ORX_SPARSE_ADD(orx_sparse_matrix const* matrix, int const* row, int const* column,
                               double const* value, int* stat);
/*
 * Adds an element matrix ke(n, n) to the unknowns dofs(n). Unknowns of 0 or below are left out, with their
 * rows and columns; a repeated unknown gets the sum.
 */
ORX_EXPORT void ORX_SPARSE_ADD_ELEMENT(orx_sparse_matrix const* matrix, int const* n, int const dofs[],
                                       double const ke[], int* stat);
/* Adds a symmetric element matrix, of which ke has the lower triangle by columns; both triangles are added.
 */
ORX_EXPORT void ORX_SPARSE_ADD_PACKED_ELEMENT(orx_sparse_matrix const* matrix, int const* n, int const dofs[],
                                              double const ke[], int* stat);
/* Ends the assembly. What follows needs an assembled matrix, else error 206. */
ORX_EXPORT void ORX_SPARSE_END(orx_sparse_matrix const* matrix, int* stat);
/* Empties the matrix for a new assembly; its shape stays, and so do entries that were added since the last
 * one. */
ORX_EXPORT void ORX_SPARSE_BEGIN(orx_sparse_matrix const* matrix, int* stat);
/* `entries` counts both triangles. */
ORX_EXPORT void ORX_SPARSE_SHAPE(orx_sparse_matrix const* matrix, int* rows, int* columns, int64_t* entries,
                                 int* stat);
/* Copies all entries, both triangles. Room for fewer than there are is error 502. */
ORX_EXPORT void ORX_SPARSE_ENTRIES(orx_sparse_matrix const* matrix, int64_t const* room, int rows[],
                                   int columns[], double values[], int* stat);
/*
 * The matrix's own compressed rows, counted from 0, which are valid until it changes. Row i has the values
 * values[row_pointers[i]] ... values[row_pointers[i+1]-1] in the columns column_indices[...]. The diagonal of
 * a matrix in symmetric form, of which one triangle is stored, is apart; of other matrices `diagonal` is
 * null.
 */
ORX_EXPORT void ORX_SPARSE_ARRAYS(orx_sparse_matrix const* matrix, int const** row_pointers,
                                  int const** column_indices, double const** values, double const** diagonal,
                                  int* stat);
/* y = A * x, or A^T * x with `transpose`, for n vectors; y does not overlap x. */
ORX_EXPORT void ORX_SPARSE_APPLY(orx_sparse_matrix const* a, int const* transpose, int const* n,
                                 double const x[], double y[], int* stat);
/* C = A * B, or A^T * B with `transpose`, B and C block matrices. */
ORX_EXPORT void ORX_SPARSE_MULTIPLY(orx_sparse_matrix const* a, int const* transpose,
                                    orx_block_matrix const* b, orx_block_matrix const* c, int* stat);
/* A new matrix A^T. */
ORX_EXPORT void ORX_SPARSE_TRANSPOSE(orx_sparse_matrix const* a, orx_sparse_matrix* result, int* stat);
/* A new matrix P * A * P^T: entry (k, l) is entry (permutation(k), permutation(l)) of A. */
ORX_EXPORT void ORX_SPARSE_PERMUTE(orx_sparse_matrix const* a, int const permutation[],
                                   orx_sparse_matrix* result, int* stat);
/* A new matrix from an exchange file: 0 Fortran records, 1 block binary, 3 text, 6 chunked binary, 7 dense
 * binary. */
ORX_EXPORT void ORX_SPARSE_IMPORT(char const path[], int const* format, orx_sparse_matrix* matrix, int* stat);
/* Writes an exchange file: 3 text, 5 text from zero with commas, 6 chunked binary, 7 dense binary. */
ORX_EXPORT void ORX_SPARSE_EXPORT(orx_sparse_matrix const* matrix, char const path[], int const* format,
                                  int* stat);

/* ---- Factorization of sparse matrices */

ORX_EXPORT void ORX_FACTOR_CREATE(orx_factor* factor, int* stat);
/* Settings for the next factorization: memory in bytes, beyond which the factor is on disk, and the folder
 * there. */
ORX_EXPORT void ORX_FACTOR_SET_MEMORY(orx_factor const* factor, int64_t const* bytes, int* stat);
ORX_EXPORT void ORX_FACTOR_SET_FOLDER(orx_factor const* factor, char const path[], int* stat);
/*
 * Factorizes K, L D L^T where K is symmetric and L U elsewhere. The next matrix of the same pattern is not
 * analysed again. A singular matrix is factorized too, see ORX_FACTOR_NULL_UNKNOWNS. An error leaves no
 * factor.
 */
ORX_EXPORT void ORX_FACTOR_FACTORIZE(orx_factor const* factor, orx_sparse_matrix const* k, int* stat);
/* Factorizes K - shift * M. */
ORX_EXPORT void ORX_FACTOR_FACTORIZE_SHIFTED(orx_factor const* factor, orx_sparse_matrix const* k,
                                             double const* shift, orx_sparse_matrix const* m, int* stat);
/* Replaces n vectors of loads by the solutions. A singular matrix is error 402, unless its unknowns are held.
 */
ORX_EXPORT void ORX_FACTOR_SOLVE(orx_factor const* factor, int const* n, double x[], int* stat);
/* The same for the columns of a block matrix. */
ORX_EXPORT void ORX_FACTOR_SOLVE_BLOCK(orx_factor const* factor, orx_block_matrix const* x, int* stat);
/*
 * Solves for n vectors with one step of refinement; b and x do not overlap. `error` is the largest backward
 * error: x solves exactly a system whose data differ by that share.
 */
ORX_EXPORT void ORX_FACTOR_SOLVE_REFINED(orx_factor const* factor, int const* n, double const b[], double x[],
                                         double* error, int* stat);
/* Numbers of negative, zero and positive eigenvalues of a symmetric matrix. */
ORX_EXPORT void ORX_FACTOR_INERTIA(orx_factor const* factor, int* negative, int* zero, int* positive,
                                   int* stat);
/*
 * The unknowns, ascending, that would hold the motions without stiffness: as many as ORX_FACTOR_INERTIA's
 * zero. Room for fewer is error 502.
 */
ORX_EXPORT void ORX_FACTOR_NULL_UNKNOWNS(orx_factor const* factor, int const* room, int unknowns[],
                                         int* count, int* stat);
/* With `held`, a singular matrix is solved as if these unknowns were held at zero. */
ORX_EXPORT void ORX_FACTOR_HOLD_NULL_UNKNOWNS(orx_factor const* factor, int const* held, int* stat);
/* The condition number in the 1-norm, estimated from below. */
ORX_EXPORT void ORX_FACTOR_CONDITION(orx_factor const* factor, double* estimate, int* stat);
/* Entries of the factor, and bytes of memory that it took. */
ORX_EXPORT void ORX_FACTOR_SIZE(orx_factor const* factor, int64_t* entries, int64_t* bytes, int* stat);

/* ---- Modes of K x = lambda M x, both sparse and symmetric, M without negative masses */

/* K and M may change between two analyses. */
ORX_EXPORT void ORX_MODES_CREATE(orx_sparse_matrix const* k, orx_sparse_matrix const* m, orx_modes* modes,
                                 int* stat);
ORX_EXPORT void ORX_MODES_SET_MEMORY(orx_modes const* modes, int64_t const* bytes, int* stat);
ORX_EXPORT void ORX_MODES_SET_FOLDER(orx_modes const* modes, char const path[], int* stat);
/* Whether the modes are counted by inertia; at first they are. */
ORX_EXPORT void ORX_MODES_SET_CERTIFIED(orx_modes const* modes, int const* certified, int* stat);
/* Analyses, each of which replaces the modes before. An error, 406 excepted, leaves none. The `count` lowest:
 */
ORX_EXPORT void ORX_MODES_FIND_LOWEST(orx_modes const* modes, int const* count, int* stat);
/* The `count` nearest to a frequency in Hz. */
ORX_EXPORT void ORX_MODES_FIND_NEAR(orx_modes const* modes, double const* frequency, int const* count,
                                    int* stat);
/* All between two frequencies in Hz. */
ORX_EXPORT void ORX_MODES_FIND_BETWEEN(orx_modes const* modes, double const* from, double const* to,
                                       int* stat);
/* Number of modes found, and whether they were counted. */
ORX_EXPORT void ORX_MODES_COUNT(orx_modes const* modes, int* count, int* certified, int* stat);
/*
 * Mode `number`, ascending from 1: lambda in (rad/s)^2, its frequency in Hz (negative for a negative lambda),
 * the bound of lambda's error, the residual (see ORXSrvModes.h), and whether it is a rigid motion.
 */
ORX_EXPORT void ORX_MODES_GET(orx_modes const* modes, int const* number, double* lambda, double* frequency,
                              double* error, double* residual, int* rigid, int* stat);
/* The shape of mode `number`, scaled to x^T M x = 1, the largest component positive. */
ORX_EXPORT void ORX_MODES_SHAPE(orx_modes const* modes, int const* number, double shape[], int* stat);
/* All shapes, a column for each mode, into a block matrix of that shape. */
ORX_EXPORT void ORX_MODES_SHAPES(orx_modes const* modes, orx_block_matrix const* shapes, int* stat);

/* ---- Dense matrices in arrays */

/*
 * Replaces a(n, n) by its factors: L D L^T of the lower triangle of a symmetric matrix, P L U of another one.
 * A pivot of zero is error 502, with the factors as LAPACK made them.
 */
ORX_EXPORT void ORX_DENSE_FACTORIZE(int const* symmetric, int const* n, double a[], int pivots[], int* stat);
/* Replaces the `count` columns of b by the solutions; a and pivots are from ORX_DENSE_FACTORIZE. */
ORX_EXPORT void ORX_DENSE_SOLVE(int const* symmetric, int const* n, double const a[], int const pivots[],
                                int const* count, double b[], int* stat);
/*
 * All eigenvalues, ascending, and vectors of K x = lambda M x, x^T M x = 1, both symmetric, M positive
 * definite. K and M stay as they are.
 */
ORX_EXPORT void ORX_DENSE_MODES(int const* n, double const k[], double const m[], double lambda[],
                                double shapes[], int* stat);

#ifdef __cplusplus
}
#endif

#endif
