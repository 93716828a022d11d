#pragma once

#include <petscksp.h>
#include <slepceps.h>

#include <exception>
#include <string>
#include <utility>
#include <vector>

namespace orx::mpi {

/// Turns a failure of PETSc or SLEPc into a ToolError with its own text.
void Check(PetscErrorCode code);

/// PETSc, SLEPc and MPI from their start to their end. Their errors become those of the calls, see Check.
class PetscSession {
public:
  /// `options` are PETSc's own, as on its command line.
  PetscSession(std::string const& program, std::vector<std::string> const& options);
  PetscSession(PetscSession const&) = delete;
  PetscSession& operator=(PetscSession const&) = delete;
  ~PetscSession();
};

/// PETSc measures its operations from here on.
void BeginEventTable();
/// Prints the table of them, with their times, flops and messages, on standard error of the root.
void PrintEventTable();

inline PetscErrorCode Destroy(Mat* object) { return MatDestroy(object); }
inline PetscErrorCode Destroy(Vec* object) { return VecDestroy(object); }
inline PetscErrorCode Destroy(KSP* object) { return KSPDestroy(object); }
inline PetscErrorCode Destroy(EPS* object) { return EPSDestroy(object); }
inline PetscErrorCode Destroy(IS* object) { return ISDestroy(object); }
inline PetscErrorCode Destroy(VecScatter* object) { return VecScatterDestroy(object); }
inline PetscErrorCode Destroy(MatNullSpace* object) { return MatNullSpaceDestroy(object); }
inline PetscErrorCode Destroy(PetscContainer* object) { return PetscContainerDestroy(object); }

/// Owns an object of PETSc, or none. Destruction is collective, so that an object is left alone while an
/// error is on its way: the other ranks may be elsewhere, and the program ends.
template<class T>
class Handle {
public:
  Handle() noexcept = default;
  explicit Handle(T object) noexcept : m_object(object) {}
  Handle(Handle&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
  Handle& operator=(Handle&& other) noexcept {
    std::swap(m_object, other.m_object);
    return *this;
  }
  ~Handle() { Release(); }

  T Get() const noexcept { return m_object; }
  /// For functions that make an object; the one before is destroyed.
  T* Receive() noexcept {
    Release();
    return &m_object;
  }
  explicit operator bool() const noexcept { return m_object != nullptr; }

private:
  void Release() noexcept {
    if (m_object != nullptr && std::uncaught_exceptions() == 0) Destroy(&m_object);
    m_object = nullptr;
  }

  T m_object = nullptr;
};

} // namespace orx::mpi
