#pragma once

#include "file/PositionedFile.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"

#include <cstdint>

/// A file system in memory with so many bytes; mounting one takes rights that not everybody has.
class SmallDisk : Uncopied {
public:
  explicit SmallDisk(std::uint64_t bytes);
  ~SmallDisk();

  bool IsMounted() const { return m_isMounted; }
  std::string Path(std::string const& name) const { return m_folder.Path("disk/" + name); }
  /// Takes all space but `left` bytes, in a file "filler".
  void Fill(std::uint64_t left) const;

private:
  TemporaryFolder m_folder;
  bool m_isMounted;
};

/// Where there is a file system in memory that everybody may write to.
constexpr char memoryFolder[] = "/dev/shm";

std::string ReadWhole(std::string const& path);
void WriteWhole(std::string const& path, std::string const& bytes);
std::uint64_t FileSize(std::string const& path);
std::uint64_t AllocatedBytes(std::string const& path);

/// The error of the FileError that work raises, 0 without one.
int ErrorOf(std::function<void()> const& work);

/// Which steps a FaultPlan counts.
bool ChangesFiles(orx::file::FileStep const& step);
inline bool IsAnyStep(orx::file::FileStep const&) { return true; }

/// While it lives, a step on a file goes wrong: the nth that counts, or all from the nth on. The default only
/// counts.
class FaultPlan : Uncopied {
public:
  enum class Effect : std::uint8_t {
    None,
    FailOnce,
    FailOn, ///< and on
    Kill,   ///< the process; of a write the first half, in whole sectors, is done before
  };

  using Filter = bool (*)(orx::file::FileStep const&);

  explicit FaultPlan(Effect effect = Effect::None, int nth = 0, int error = 0, Filter counts = ChangesFiles);
  ~FaultPlan() { orx::file::SetFaultHook(nullptr); }

  int Steps() const { return m_steps; }

private:
  int m_steps = 0;
};
