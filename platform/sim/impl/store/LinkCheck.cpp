#include "sim/impl/store/LinkCheck.h"

#include "sim/impl/store/Hdf5.h"

#include <algorithm>
#include <array>
#include <string>
#include <vector>

namespace orx::store {

#ifdef NDEBUG
bool checksEveryCommit = false;
#else
bool checksEveryCommit = true;
#endif

namespace {

/// A range of bytes of the file that belongs to one object.
struct Extent {
  haddr_t first;
  hsize_t bytes;
  std::string owner;
};

struct LinkedObject {
  std::string path;
  H5O_info_t info;
};

[[noreturn]] void Refuse(std::string const& cause) {
  throw Hdf5Failure{.what = "checking the structure before a commit", .cause = cause};
}

std::vector<LinkedObject> LinkedObjects(hid_t file) {
  CollectedItems<LinkedObject> objects;
  auto const collect = [](hid_t, char const* name, H5O_info_t const* info, void* list) {
    return static_cast<CollectedItems<LinkedObject>*>(list)->Add(name, *info);
  };
  return objects.TakeItems(
      H5Ovisit2(file, H5_INDEX_NAME, H5_ITER_NATIVE, collect, &objects, H5O_INFO_BASIC | H5O_INFO_HDR),
      "listing all objects");
}

void AddChunks(hid_t dataset, std::string const& path, std::vector<Extent>& extents) {
  Handle const space = CheckedReadId(H5Dget_space(dataset), "reading the shape of " + path);
  hsize_t chunks = 0;
  CheckedRead(H5Dget_num_chunks(dataset, space.Get(), &chunks), "counting chunks of " + path);
  for (hsize_t k = 0; k < chunks; ++k) {
    std::array<hsize_t, H5S_MAX_RANK> corner{};
    unsigned skippedFilters = 0;
    haddr_t offset = HADDR_UNDEF;
    hsize_t bytes = 0;
    CheckedRead(H5Dget_chunk_info(dataset, space.Get(), k, corner.data(), &skippedFilters, &offset, &bytes),
                "looking a chunk up");
    extents.push_back({.first = offset, .bytes = bytes, .owner = "the cells of " + path});
  }
}

void AddRawData(hid_t file, std::string const& path, std::vector<Extent>& extents) {
  Handle const dataset = CheckedReadId(H5Dopen2(file, path.c_str(), H5P_DEFAULT), "opening " + path);
  Handle const creation =
      CheckedReadId(H5Dget_create_plist(dataset.Get()), "reading the properties of " + path);
  if (H5Pget_layout(creation.Get()) == H5D_CHUNKED) return AddChunks(dataset.Get(), path, extents);
  haddr_t const offset = H5Dget_offset(dataset.Get());
  if (offset != HADDR_UNDEF)
    extents.push_back(
        {.first = offset, .bytes = H5Dget_storage_size(dataset.Get()), .owner = "the cells of " + path});
}

} // namespace

void CheckLinks(std::int64_t file) {
  std::vector<Extent> extents;
  for (LinkedObject const& object : LinkedObjects(file)) {
    if (object.info.rc != 1)
      Refuse(object.path + " has the link count " + std::to_string(object.info.rc) + ", expected 1");
    extents.push_back({.first = object.info.addr, .bytes = 1, .owner = object.path});
    if (object.info.type == H5O_TYPE_DATASET) AddRawData(file, object.path, extents);
  }
  std::sort(extents.begin(), extents.end(),
            [](Extent const& a, Extent const& b) { return a.first < b.first; });
  for (std::size_t k = 1; k < extents.size(); ++k)
    if (extents[k - 1].first + extents[k - 1].bytes > extents[k].first)
      Refuse(extents[k - 1].owner + " and " + extents[k].owner + " share bytes from offset " +
             std::to_string(extents[k].first) + " on");
}

} // namespace orx::store
