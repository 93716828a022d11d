#pragma once

#include "bench/Harness.h"

// The groups of claims, one source each.

namespace bench {

/// Operations of the in-memory matrix against the bare BLAS/LAPACK call that they make.
void ClaimMatrixOverheads(Report& report);
/// Element operations of the in-memory matrix against plain loops and memcpy.
void ClaimElementOperations(Report& report);
/// Assembly of the element matrices of a mesh.
void ClaimAssembly(Report& report);
/// Cells of a database drawer against copies in memory and other libraries.
void ClaimDatabaseValues(Report& report);
/// Durable commits of small objects.
void ClaimDatabaseCommits(Report& report);
/// Products and updates of block matrices against DGEMM in memory, memcpy and other libraries.
void ClaimDenseProducts(Report& report);
/// Products of the symmetric scratch matrix against those of the full one.
void ClaimSymmetricBlocks(Report& report);
/// Creation of many small registered matrices.
void ClaimMatrixRegistry(Report& report);
/// Reading and writing text triplets.
void ClaimTextTriplets(Report& report);
/// Reading and writing every exchange format.
void ClaimExchangeFiles(Report& report);
/// Products of sparse matrices and blocks of vectors.
void ClaimSparseKernels(Report& report);
/// Transposition, permutation, difference and symmetry test of sparse matrices.
void ClaimSparseOperations(Report& report);
/// Modes and reading on many ranks, beside one rank and SLEPc.
void ClaimManyRanks(Report& report);
/// Sparse factorization, block solves and modes.
void ClaimSparseModes(Report& report);

} // namespace bench
