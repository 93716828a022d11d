#include "host/impl/Call.h"

#include "host/orx_linear_algebra.h"

#include <string>

namespace orx::host {
namespace {

std::shared_ptr<Registry> RegistryCreate() {
  auto registry = std::make_shared<Registry>();
  registry->own = std::make_unique<ORXSrvMatrixContainer>();
  registry->container = registry->own.get();
  return registry;
}

std::shared_ptr<Registry> RegistryAdopt(void* address) {
  auto registry = std::make_shared<Registry>();
  registry->container = Required("*address", static_cast<ORXSrvMatrixContainer*>(address));
  return registry;
}

void RegistryAddress(Registry& registry, void*& address) { address = registry.container; }

void RegistryAdd(Registry& registry, int id, int rows, int columns, int rowBlock, int columnBlock,
                 int const* rowLabels, int const* columnLabels) {
  Shape const shape = ShapeOf(rows, columns, rowBlock, columnBlock);
  if (registry.container->IsMember(id))
    RaiseHostError(HostError::wrongArgument,
                   "id is " + std::to_string(id) + ", which is or was in use; expected a new one.");
  registry.container->Create(id, rows, columns, rowLabels, columnLabels, shape.rowBlock, shape.columnBlock);
}

std::shared_ptr<BlockMatrix> RegistryMatrix(Registry& registry, int id) {
  registry.container->Get(id);
  auto matrix = std::make_shared<BlockMatrix>();
  matrix->registry = std::static_pointer_cast<Registry>(registry.shared_from_this());
  matrix->id = id;
  return matrix;
}

void RegistryRemove(Registry& registry, int id) {
  registry.container->Get(id);
  registry.container->Remove(id);
}

} // namespace
} // namespace orx::host

#include "host/Registries.inc"
