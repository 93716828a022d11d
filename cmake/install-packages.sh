# shellcheck shell=bash
# Sourced by the scripts that build: orx_install PACKAGE... installs those Debian packages that are not there yet.
# Without anything to install it needs neither the network nor any rights.

# What orxmtx-mpi is made with and run by.
# shellcheck disable=SC2034 # for those who source this
orx_mpi_packages="libslepc-real-dev libpetsc-real-dev libhdf5-openmpi-dev libscalapack-openmpi-dev libmumps-dev
  libscotch-dev libopenmpi-dev openmpi-bin"

orx_is_installed() {
  [ "$(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

orx_install() {
  local package missing=() as_root=() log
  for package in "$@"; do
    orx_is_installed "$package" || missing+=("$package")
  done
  [ ${#missing[@]} -gt 0 ] || return 0

  if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null; then
      echo "missing packages: ${missing[*]}; install them as root, or install sudo" >&2
      return 1
    fi
    as_root=(sudo)
  fi
  echo "installing: ${missing[*]}"
  log=$(mktemp)
  if ! { "${as_root[@]}" apt-get update -q &&
         "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
           apt-get install -q -y --no-install-recommends "${missing[@]}"; } >"$log" 2>&1 </dev/null; then
    tail -n 20 "$log" >&2
    echo "could not install ${missing[*]}; the whole output is in $log" >&2
    return 1
  fi
  rm -f "$log"
}
