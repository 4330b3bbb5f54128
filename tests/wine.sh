#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# wine.sh PROGRAM [ARGUMENT]... : runs a Windows program of either width, in a prefix of its own under
# build/platforms/wine, which the first call makes.
set -euo pipefail
home=$(cd "$(dirname "$0")/.." && pwd)/build/platforms/wine
export WINEPREFIX=$home/prefix WINEDLLPATH=$home WINEARCH=win64 WINEDEBUG=-all
export WINEDLLOVERRIDES="mscoree,mshtml=;winedbg.exe=d"
unset DISPLAY
wine=/usr/lib/wine/wine64

# 64-bit wine runs 32-bit programs with the libraries of its 32-bit package, which are unpacked beside
# it: that takes no second architecture on this machine.
unpack() {
  local mirror apt
  mirror=$(sed -nE 's/^(URIs:|deb( \[[^]]*\])?) *(\S+).*/\3/p' \
    /etc/apt/sources.list /etc/apt/sources.list.d/* 2>/dev/null | head -1)
  mkdir -p "$home/lists/partial"
  echo "deb [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $mirror bookworm main" >"$home/sources.list"
  apt=(apt-get -qq -o APT::Architectures::=amd64 -o APT::Architectures::=i386 -o APT::Sandbox::User=root
    -o Dir::State::lists="$home/lists" -o Dir::Etc::sourceparts=/dev/null -o Dir::Etc::sourcelist="$home/sources.list")
  (cd "$home" && "${apt[@]}" update && "${apt[@]}" download libwine:i386 &&
    dpkg-deb --fsys-tarfile libwine_*_i386.deb |
      tar -x --strip-components=5 ./usr/lib/i386-linux-gnu/wine/i386-windows)
  rm -rf "$home"/libwine_*_i386.deb "$home/lists"
}

if [ ! -e "$home/booted" ]; then
  mkdir -p "$home"
  (
    flock 9
    [ -e "$home/booted" ] && exit
    [ -d "$home/i386-windows" ] || unpack
    "$wine" wineboot -i </dev/null
    touch "$home/booted"
  ) 9>"$home/lock" >"$home/log" 2>&1 || { cat "$home/log" >&2; exit 99; }
fi

# Without a server that stays, each program would start the system anew.
wineserver -p120 </dev/null >/dev/null 2>&1 || true
# Of a pipe the programs that wine starts beside this one would be writers too.
out=$(mktemp)
trap 'rm -f "$out" "$out.err"' EXIT
code=0
"$wine" "$@" </dev/null >"$out" 2>"$out.err" || code=$?
cat "$out"
cat "$out.err" >&2
exit $code
