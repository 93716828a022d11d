#!/usr/bin/env bash
# check_layers_refuses.sh ROOT: check_layers.sh finds each of these lines, put into a copy of the sources.
set -euo pipefail
cd "$1"
copy=$(mktemp -d)
trap 'rm -rf "$copy"' EXIT
mkdir "$copy/docs"
cp docs/architecture.md "$copy/docs"
cp -r --parents $(find platform blac mtx module solve host tools examples bench tests -maxdepth 0) "$copy"
check=$PWD/tests/house/check_layers.sh
"$check" "$copy" >/dev/null

failed=0 number=0
# refuses FILE LINE TEXT: with the line behind its others FILE is refused, in a message that has TEXT.
refuses() {
  number=$((number + 1))
  local kept said
  kept=$(mktemp -p "$copy")
  mkdir -p "$(dirname "$copy/$1")"
  [ ! -e "$copy/$1" ] || cp "$copy/$1" "$kept"
  echo "$2" >>"$copy/$1"
  if said=$("$check" "$copy") || [[ $said != *"$1"*"$3"* ]]; then
    echo "not refused: $2 in $1: $said"
    failed=1
  fi
  if [ -s "$kept" ]; then mv "$kept" "$copy/$1"; else rm "$copy/$1" "$kept"; fi
}

refuses platform/core/impl/omi_Timer.cpp '#include "sim/ORXSimContext.h"' 'core may not include'
refuses platform/file/Journal.h '#include "core/atr_String.h"' 'file may not include'
refuses platform/file/impl/Journal.cpp '#include <hdf5.h>' 'only platform/sim/impl/store/'
refuses platform/sim/impl/store/DenseDrawer.cpp '#include "sim/impl/Context.h"' 'store may not include'
refuses platform/sim/impl/Context.cpp '#include <hdf5.h>' 'only platform/sim/impl/store/'
refuses platform/sim/impl/CatalogReader.cpp 'bool IsOpen(hid_t file);' 'uses names of HDF5'
refuses platform/sim/impl/CatalogReader.cpp '  H5Gclose(group.Get());' 'uses names of HDF5'
refuses mtx/impl/exchange/TextTriplets.cpp 'auto const kind = H5T_INTEGER;' 'uses names of HDF5'
refuses platform/sim/ORXSimContext.h '#include "sim/impl/Context.h"' 'sim may not include'
refuses mtx/impl/blocks/ORXSrvDenseMatrix.cpp '#include "sim/impl/Context.h"' 'private to platform/sim/'
refuses mtx/impl/blocks/ORXSrvDenseMatrix.cpp '#include "sim/impl/store/DenseDrawer.h"' 'private to platform/sim/'
refuses mtx/impl/exchange/TextTriplets.cpp '#include "mtx/ORXSrvSparseMatrix.h"' 'exchange may not include'
refuses mtx/impl/blocks/ORXSrvDenseMatrix.cpp '#include "mtx/impl/exchange/FileInput.h"' 'blocks may not include'
refuses mtx/impl/matrix/ORXSrvMatrix.cpp '#include "blac/sparse/SpmvKernels.h"' 'matrix may not include'
refuses tools/commands/Modes.cpp '#include "mtx/impl/exchange/FileInput.h"' 'private to mtx/'
refuses tools/numerics/Symmetry.cpp '#include "tools/formats/MatrixFile.h"' 'numerics may not include'
refuses tools/commands/Info.cpp '#include <petscmat.h>' 'only tools/mpi/'
refuses tools/commands/Info.cpp '#include "tools/mpi/Ranks.h"' 'commands may not include'
refuses examples/modal_projection/modal_projection.cpp '#include "blac/sparse/SpmvKernels.h"' 'examples may not include'
refuses mtx/ORXSrvMatrix.h '  #include "mtx/ORXSrvSparseMatrix.h"' 'an include is written as'
refuses mtx/ORXSrvMatrix.h '#  include "mtx/ORXSrvSparseMatrix.h"' 'an include is written as'
refuses mtx/ORXSrvMatrix.h '#include <mtx/ORXSrvSparseMatrix.h>' 'included with quotes'
refuses mtx/impl/matrix/ORXSrvMatrix.cpp '#include BLAC_HEADER' 'an include is written as'
refuses mtx/impl/elsewhere/New.cpp '' 'belongs to no room'
[ "$failed" -eq 0 ]
echo "$number lines refused"
