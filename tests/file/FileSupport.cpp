#include "FileSupport.h"

#include <csignal>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

namespace fs = std::filesystem;

SmallDisk::SmallDisk(std::uint64_t bytes) {
  fs::create_directory(m_folder.Path("disk"));
  std::string const options = "size=" + std::to_string(bytes);
  m_isMounted = mount("none", m_folder.Path("disk").c_str(), "tmpfs", 0, options.c_str()) == 0;
}

SmallDisk::~SmallDisk() {
  if (m_isMounted) umount2(m_folder.Path("disk").c_str(), MNT_DETACH);
}

void SmallDisk::Fill(std::uint64_t left) const {
  struct statvfs facts {};
  statvfs(Path(".").c_str(), &facts);
  std::uint64_t const free = facts.f_bavail * facts.f_bsize;
  WriteWhole(Path("filler"), std::string(free - left, 'f'));
}

std::string ReadWhole(std::string const& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << file.rdbuf();
  return bytes.str();
}

void WriteWhole(std::string const& path, std::string const& bytes) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

std::uint64_t FileSize(std::string const& path) { return fs::file_size(path); }

std::uint64_t AllocatedBytes(std::string const& path) {
  struct stat facts {};
  stat(path.c_str(), &facts);
  return static_cast<std::uint64_t>(facts.st_blocks) * 512;
}

int ErrorOf(std::function<void()> const& work) {
  try {
    work();
  } catch (orx::file::FileError const& error) {
    return error.Error();
  }
  return 0;
}

namespace {

void KillInside(orx::file::FileStep const& step) {
  if (step.kind == orx::file::FileStep::Kind::Write) {
    std::uint64_t const half = step.bytes / 2 / 512 * 512;
    [[maybe_unused]] ssize_t const written =
        pwrite(step.descriptor, step.data, half, static_cast<off_t>(step.offset));
  }
  raise(SIGKILL);
}

} // namespace

bool ChangesFiles(orx::file::FileStep const& step) {
  using Kind = orx::file::FileStep::Kind;
  return step.kind != Kind::Read && step.kind != Kind::Map;
}

FaultPlan::FaultPlan(Effect effect, int nth, int error, Filter counts) {
  orx::file::SetFaultHook([this, effect, nth, error, counts](orx::file::FileStep const& step) {
    if (!counts(step)) return 0;
    ++m_steps;
    if (effect == Effect::Kill && m_steps == nth) KillInside(step);
    bool const fails =
        (effect == Effect::FailOnce && m_steps == nth) || (effect == Effect::FailOn && m_steps >= nth);
    // What frees space does not fail for want of it.
    bool const needsSpace =
        step.kind == orx::file::FileStep::Kind::Write || step.kind == orx::file::FileStep::Kind::Reserve;
    return fails && (error != ENOSPC || needsSpace) ? error : 0;
  });
}
