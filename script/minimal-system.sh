# shellcheck shell=bash
# A minimal Debian system in a directory, for scripts that test on a new machine. Sourced after
# common.sh, never run. Needs root, debootstrap and a package server.

# The first package server of this system that has the release.
package_server() {
  # shellcheck disable=SC2016  # apt's own variables
  apt-get indextargets --format '$(CODENAME) $(SITE)' 'Created-By: Packages' |
    sed -n "s/^$1 //p" | head -n 1
}

# make_minimal_system DIRECTORY: installs the release of this system; fails if it cannot.
make_minimal_system() {
  local system=$1 release
  release=$(sed -n 's/^VERSION_CODENAME=//p' /etc/os-release)
  [[ $(id -u) == 0 ]] || return
  quietly debootstrap --variant=minbase "$release" "$system" "$(package_server "$release")" || return
  cp /etc/resolv.conf "$system/etc/"
}

# inside SYSTEM COMMAND...: runs the command there, with a clean environment. Its mounts are removed
# afterwards.
inside() {
  local system=$1
  shift
  # shellcheck disable=SC2016  # the inner shell fills them in
  unshare --mount --propagation private sh -c '
    mount -t proc proc "$1/proc" && mount -t devpts -o ptmxmode=666 devpts "$1/dev/pts" &&
      exec chroot "$@"' sh \
    "$system" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LANG=C.UTF-8 \
    DEBIAN_FRONTEND=noninteractive "$@"
}

# check_consumer SYSTEM DIRECTORY PREFIX: builds Tests/consumer, in that directory of the system,
# against the installation in the prefix, with find_package and pkg-config, and runs it.
check_consumer() {
  local system=$1 directory=$2 prefix=$3
  quietly inside "$system" cmake -G Ninja -S "$directory" -B /consumer-build -DCMAKE_PREFIX_PATH="$prefix" &&
    quietly inside "$system" cmake --build /consumer-build &&
    inside "$system" /consumer-build/consumer "$prefix" || return
  # shellcheck disable=SC2016  # the inner shell fills them in
  inside "$system" sh -c 'export PKG_CONFIG_PATH="$(dirname "$(find "$2" -name KivResource.pc)")"
    c++ -std=c++20 -I"$1" "$1/main.cpp" -o /consumer-build/other $(pkg-config --cflags --libs KivResource) &&
      /consumer-build/other "$2"' sh "$directory" "$prefix"
}
