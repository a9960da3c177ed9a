#!/usr/bin/env bash
# Installs everything Routvane needs on a fresh Debian 12 machine (run as root):
# the mingw-w64 cross toolchain, Wine, CMake, the network-lab tools, and the
# three third-party libraries built for mingw from Debian's source packages
# (ACE, TRE, GoogleTest), and the header-only libraries of the command-line
# tool (CLI11, nlohmann/json) copied where the cross compiler is pointed at
# them alone, never at the host's /usr/include. Library builds are cached outside the work tree,
# keyed by version and toolchain, so only a new machine pays for them.
#
# Prints the cache prefix holding the built libraries as its last line.
set -euo pipefail

CACHE_ROOT=${ROUTVANE_DEPS_CACHE:-/var/cache/routvane-deps}
RECIPE=3   # bump when a build recipe below changes

log() { printf '[setup] %s\n' "$*" >&2; }

PACKAGES=(
  g++-mingw-w64-x86-64-posix gcc-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64
  mingw-w64-x86-64-dev mingw-w64-tools
  wine64 wine libwine-dev
  cmake make perl dpkg-dev googletest libcli11-dev nlohmann-json3-dev
  dnsmasq-base iproute2 python3 util-linux procps
)

need_install() {
  local p
  for p in "${PACKAGES[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || { echo "$p"; }
  done
}

# deb-src entries are derived from the machine's own deb entries, so that
# apt-get source uses the same mirror the machine already trusts.
enable_deb_src() {
  local out=/etc/apt/sources.list.d/routvane-deb-src.sources
  [ -s "$out" ] && return 0
  local f tmp
  tmp=$(mktemp)
  for f in /etc/apt/sources.list.d/*.sources; do
    [ -f "$f" ] || continue
    [ "$f" = "$out" ] && continue
    awk '
      function flush() {
        if (isdeb && !hassrc && stanza != "") { printf "%s\n", stanza }
        stanza=""; isdeb=0; hassrc=0
      }
      /^[[:space:]]*$/ { flush(); next }
      /^#/ { next }
      /^Types:/ {
        if ($0 ~ /deb-src/) hassrc=1
        if ($0 ~ /(^|[[:space:]])deb([[:space:]]|$)/) isdeb=1
        stanza = stanza "Types: deb-src\n"; next
      }
      /^Enabled:[[:space:]]*no/ { isdeb=0 }
      { stanza = stanza $0 "\n" }
      END { flush() }
    ' "$f" >>"$tmp"
  done
  if [ -f /etc/apt/sources.list ]; then
    sed -n 's/^deb\([[:space:]]\)/deb-src\1/p' /etc/apt/sources.list >"$tmp.list" || true
  fi
  if [ -s "$tmp" ]; then
    install -m 644 "$tmp" "$out"
  fi
  if [ -s "$tmp.list" ]; then
    install -m 644 "$tmp.list" /etc/apt/sources.list.d/routvane-deb-src.list
  fi
  rm -f "$tmp" "$tmp.list"
  APT_UPDATED=0
}

APT_UPDATED=0
apt_update() {
  if [ "$APT_UPDATED" = 0 ]; then
    log "apt-get update"
    apt-get update -qq >&2
    APT_UPDATED=1
  fi
}

install_packages() {
  local missing
  missing=$(need_install)
  if [ -n "$missing" ]; then
    apt_update
    log "installing: $(echo $missing)"
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends $missing >&2
  fi
}

CXX=x86_64-w64-mingw32-g++-posix
CC=x86_64-w64-mingw32-gcc-posix

fetch_source() {  # package version dir
  local pkg=$1 ver=$2 dir=$3
  enable_deb_src
  apt_update
  mkdir -p "$dir"
  (cd "$dir" && apt-get source -qq --download-only "$pkg=$ver" >&2 2>&1 && dpkg-source -x ./*.dsc src >/dev/null)
}

build_tre() {
  local prefix=$1 ver=0.8.0-7 work
  work=$(mktemp -d)
  log "building TRE $ver for mingw"
  fetch_source libtre-dev "$ver" "$work"
  (cd "$work/src"
   ./configure -q --host=x86_64-w64-mingw32 CC="$CC" --prefix="$prefix" \
       --enable-static --disable-shared --disable-agrep --disable-nls >&2
   make -s -j"$(nproc)" -C lib >&2
   make -s -C lib install >&2)
  rm -rf "$work"
}

build_ace() {
  local prefix=$1 ver=7.0.8+dfsg-2 work root
  work=$(mktemp -d)
  log "building ACE $ver for mingw (a few minutes)"
  fetch_source libace-dev "$ver" "$work"
  root="$work/src"
  (
    export ACE_ROOT="$root" MPC_ROOT="$root/MPC"
    cd "$root"
    printf '#include "ace/config-win32.h"\n' >ace/config.h
    cat >include/makeinclude/platform_macros.GNU <<'EOF2'
CROSS_COMPILE=x86_64-w64-mingw32-
static_libs_only=1
debug=0
optimize=1
threads=1
inline=0
include $(ACE_ROOT)/include/makeinclude/platform_mingw32.GNU
EOF2
    cd ace
    perl "$root/bin/mpc.pl" -type gnuace ace.mpc >&2
    make -s -j"$(nproc)" -f GNUmakefile.ACE CC="$CC" CXX="$CXX" >&2
  )
  mkdir -p "$prefix/lib" "$prefix/include"
  cp "$(find "$root" -name libACE.a | head -n 1)" "$prefix/lib/"
  (cd "$root" && find ace -type f \( -name '*.h' -o -name '*.inl' -o -name '*.cpp' \) -print0 |
     xargs -0 cp --parents -t "$prefix/include")
  rm -rf "$work"
}

build_gtest() {
  local prefix=$1 work
  work=$(mktemp -d)
  log "building GoogleTest for mingw"
  cmake -S /usr/src/googletest -B "$work" -G "Unix Makefiles" \
    -DCMAKE_SYSTEM_NAME=Windows -DCMAKE_C_COMPILER="$CC" -DCMAKE_CXX_COMPILER="$CXX" \
    -DCMAKE_RC_COMPILER=x86_64-w64-mingw32-windres -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_INSTALL_PREFIX="$prefix" -DBUILD_GMOCK=ON -Dgtest_disable_pthreads=OFF \
    -DCMAKE_CXX_FLAGS="-static-libgcc -static-libstdc++" >&2
  cmake --build "$work" -j"$(nproc)" >&2
  cmake --install "$work" >&2
  rm -rf "$work"
}

# Just the two header trees of Debian's packages, keyed by their versions.
tool_headers() {
  local versions dir
  versions=$(dpkg-query -W -f='${Version}-' libcli11-dev nlohmann-json3-dev)
  dir="$CACHE_ROOT/tool-headers-${versions%-}"
  if [ ! -f "$dir/.complete" ]; then
    rm -rf "$dir"
    mkdir -p "$dir/include"
    cp -r /usr/include/CLI /usr/include/nlohmann "$dir/include/"
    touch "$dir/.complete"
  fi
  echo "$dir"
}

# Two set-ups running at once (two work trees, two CI jobs) would build into
# the same temporary folder: one lock under the cache root lets one build at
# a time, and whoever waited finds the other's build complete. Bounded, so
# a set-up never waits for ever on a lock left by a hung build.
LOCK_WAIT_SECONDS=3600

cached() {  # name builder
  local name=$1 builder=$2 key dir
  key="$name-$("$CXX" -dumpversion)-r$RECIPE"
  dir="$CACHE_ROOT/$key"
  [ -f "$dir/.complete" ] && { echo "$dir"; return 0; }
  mkdir -p "$CACHE_ROOT"
  # This function runs in a command substitution: the lock goes with it.
  exec 9>"$CACHE_ROOT/.lock"
  if ! flock -w "$LOCK_WAIT_SECONDS" 9; then
    log "another set-up has held $CACHE_ROOT/.lock for ${LOCK_WAIT_SECONDS}s; giving up"
    exit 1
  fi
  if [ ! -f "$dir/.complete" ]; then
    rm -rf "$dir.tmp"
    mkdir -p "$dir.tmp"
    "$builder" "$dir.tmp"
    rm -rf "$dir"
    mv "$dir.tmp" "$dir"
    # the builders record their own prefix in pkg-config and cmake files; point them at the final place
    grep -rlF "$dir.tmp" "$dir" 2>/dev/null | xargs -r sed -i "s#$dir.tmp#$dir#g"
    touch "$dir/.complete"
  fi
  echo "$dir"
}

main() {
  install_packages
  local ace tre gtest headers
  tre=$(cached tre-0.8.0 build_tre)
  gtest=$(cached googletest-1.12.1 build_gtest)
  ace=$(cached ace-7.0.8 build_ace)
  headers=$(tool_headers)
  local env="$CACHE_ROOT/deps.env"
  # Written aside and renamed, so that a set-up running beside this one
  # never reads a half-written file.
  printf 'ACE_PREFIX=%s\nTRE_PREFIX=%s\nGTEST_PREFIX=%s\nTOOL_HEADERS_PREFIX=%s\n' \
    "$ace" "$tre" "$gtest" "$headers" >"$env.$$"
  mv -f "$env.$$" "$env"
  echo "$env"
}

main "$@"
