# Shared by ./run, ./test and bench/run: packages and build folders. Sourced, never run.
# shellcheck shell=bash

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

die() {
  echo "$(basename "$0"): $*" >&2
  exit 1
}

# install_packages CATEGORY...: installs what of packages.txt is missing for these categories.
# Quick and silent when nothing is.
install_packages() {
  local wanted missing=() package sudo=()
  wanted=$(awk -v want=" $* " '!/^#/ && NF == 2 && index(want, " " $1 " ") { print $2 }' \
    "$root/packages.txt")
  local installed
  # dpkg-query fails when it does not know one of them; what it does know it lists all the same.
  # shellcheck disable=SC2086 # one package a word
  installed=$( (dpkg-query -W -f '${Package} ${db:Status-Status}\n' $wanted 2>/dev/null || true) |
    awk '$2 == "installed" { print $1 }' | sort -u)
  for package in $wanted; do
    grep -qx "$package" <<<"$installed" || missing+=("$package")
  done
  [ ${#missing[@]} -gt 0 ] || return 0
  command -v apt-get >/dev/null ||
    die "these Debian packages are missing and there is no apt-get: ${missing[*]}"
  if [ "$(id -u)" != 0 ]; then
    command -v sudo >/dev/null ||
      die "run me as root or install sudo; missing packages: ${missing[*]}"
    sudo=(sudo)
  fi
  echo "installing ${#missing[@]} packages: ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  "${sudo[@]}" apt-get update -q || die "apt-get update failed"
  "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -q --no-install-recommends "${missing[@]}" || die "apt-get install failed"
}

# configure_build FOLDER MESON-OPTION...: makes the build folder, or brings its options up to date.
configure_build() {
  local folder=$1
  shift
  if [ -f "$folder/meson-private/coredata.dat" ]; then
    meson configure "$folder" "$@" >"$folder.log" 2>&1 && { rm -f "$folder.log"; return 0; }
    # A folder made by another meson or elsewhere cannot be configured any more: make it anew. What is
    # wrong with the project itself would not be better for that.
    meson setup --reconfigure "$folder" "$root" "$@" >"$folder.log" 2>&1 &&
      { rm -f "$folder.log"; return 0; }
    grep -q 'meson.build:[0-9]*:[0-9]*: ERROR' "$folder.log" &&
      { cat "$folder.log"; die "meson setup failed"; }
    rm -rf "$folder"
  fi
  meson setup "$folder" "$root" "$@" >"$folder.log" 2>&1 ||
    { cat "$folder.log"; die "meson setup failed"; }
  rm -f "$folder.log"
}
