# Sourced by run and test: which Debian packages are needed, and how missing ones get here.

build_packages="g++ cmake ninja-build pkg-config libfltk1.3-dev libxcursor-dev libxinerama-dev libcli11-dev rapidjson-dev libxxhash-dev"
test_packages="libgtest-dev libgmock-dev nlohmann-json3-dev strace clang clang-tidy clang-format libclang-rt-14-dev
  fdisk gdisk parted dosfstools ntfs-3g xfsprogs btrfs-progs f2fs-tools exfatprogs reiserfsprogs cryptsetup-bin lvm2
  mtools xorriso xxhash qemu-utils qemu-system-x86 seabios
  xvfb xauth xdotool imagemagick openbox e2fsprogs mount man-db"

# need PACKAGE...: installs those that are missing; without the rights to, says which they are.
need() {
  local missing=() package
  for package in "$@"; do
    [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" = installed ] ||
      missing+=("$package")
  done
  [ ${#missing[@]} -gt 0 ] || return 0
  local as_root=()
  if [ "$(id -u)" -ne 0 ]; then
    if command -v sudo >/dev/null && sudo -n true 2>/dev/null; then
      as_root=(sudo)
    else
      echo "These packages are missing, and installing them needs root. Run as root, and then this again:" >&2
      echo "  apt-get update && apt-get install --no-install-recommends ${missing[*]}" >&2
      return 1
    fi
  fi
  echo "Installing: ${missing[*]}"
  "${as_root[@]}" apt-get update -qq &&
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq \
      --no-install-recommends "${missing[@]}" >/dev/null
}
