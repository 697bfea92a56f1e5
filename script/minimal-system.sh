# shellcheck shell=bash
# A minimal Debian system in a directory, for scripts that try there what a new machine would see.
# Sourced after common.sh, never run. Takes root, debootstrap and a package server.

# The first package server of this system that has that release.
package_server() {
  # shellcheck disable=SC2016  # apt's own variables
  apt-get indextargets --format '$(CODENAME) $(SITE)' 'Created-By: Packages' |
    sed -n "s/^$1 //p" | head -n 1
}

# make_minimal_system DIRECTORY: the release of this system; fails where it cannot be made.
make_minimal_system() {
  local system=$1 release
  release=$(sed -n 's/^VERSION_CODENAME=//p' /etc/os-release)
  [[ $(id -u) == 0 ]] || return
  quietly debootstrap --variant=minbase "$release" "$system" "$(package_server "$release")" || return
  cp /etc/resolv.conf "$system/etc/"
}

# inside SYSTEM COMMAND...: runs it there, in an environment of its own. What it mounts goes with it.
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

# check_consumer SYSTEM DIRECTORY PREFIX: builds Tests/consumer, which lies in that directory there,
# against what is installed under the prefix, with find_package and with pkg-config, and runs it.
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
