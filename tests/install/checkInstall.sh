#!/usr/bin/env bash
# checkInstall.sh MODE BUILD_DIR VERSION
#   Prefix         cmake --install into a scratch prefix: exactly the two
#                  programs, their manual pages and the documents, and the
#                  installed programs run (help, version, a short conversion).
#   ManPages       both installed pages format without a warning at 80
#                  columns, and man finds them under the prefix.
#   DebianPackage  cpack -G DEB: name, version, section, maintainer,
#                  dependencies found by dpkg-shlibdeps, and its files.
# Exit status 0 passed, 1 failed, 77 skipped (a tool it needs is missing).
set -uo pipefail
mode=$1 build=$2 version=$3

scratch=$(mktemp -d /tmp/pal2ntsc-install-XXXXXX)
trap 'rm -rf "$scratch"' EXIT
failures=0
fail() { echo "FAILED: $*"; failures=$((failures + 1)); }
skip() { echo "skipped: $1 not installed"; exit 77; }
expect_eq() { # what, got, wanted
  [ "$2" == "$3" ] || fail "$1: got [$2], wanted [$3]"
}

# The files a tree holds under `root`, one relative path a line, with
# ".gz" dropped from manual pages (installed compressed where gzip is).
files_of() {
  (cd "$1" && find . \( -type f -o -type l \) | sed -e 's|^\./||' -e 's|\(man1/.*\.1\)\.gz$|\1|' | sort)
}
wanted_files() {
  printf '%s\n' "$1/bin/pal2ntsc" "$1/bin/vclip" \
    "$1/share/doc/pal2ntsc/README.md" "$1/share/doc/pal2ntsc/copyright" \
    "$1/share/man/man1/pal2ntsc.1" "$1/share/man/man1/vclip.1" | sed 's|^/||' | sort
}

install_into() {
  if ! cmake --install "$build" --prefix "$1" >"$scratch/install.log" 2>&1; then
    cat "$scratch/install.log"
    fail "cmake --install $build --prefix $1"
    exit 1
  fi
}

check_prefix() {
  local prefix=$scratch/prefix
  install_into "$prefix"
  expect_eq "installed files" "$(files_of "$prefix")" "$(wanted_files "")"

  # The programs run from the prefix, away from the build folder.
  local out status
  out=$("$prefix/bin/pal2ntsc" -h 2>&1); status=$?
  expect_eq "pal2ntsc -h status" "$status" 0
  expect_eq "pal2ntsc -h" "$out" \
    "Use: $prefix/bin/pal2ntsc -P pal_file_name -N ntsc_file_name [-n scaled_ntsc_file_name] [-s scale]"
  out=$("$prefix/bin/vclip" --version 2>&1); status=$?
  expect_eq "vclip --version status" "$status" 0
  expect_eq "vclip --version" "$out" "vclip $version"

  local work=$scratch/work
  mkdir -p "$work"
  "$prefix/bin/vclip" bars "$work/pal.clip" --frames 2 || fail "vclip bars"
  out=$("$prefix/bin/pal2ntsc" -P "$work/pal.clip" -N "$work/ntsc.clip" -n "$work/small.clip" 2>&1)
  expect_eq "pal2ntsc conversion" "$out" "PAL file: 2 frames [720x576]"
  out=$("$prefix/bin/vclip" info "$work/ntsc.clip" | tail -n 1)
  expect_eq "vclip info of the converted clip" "$out" "complete:     yes, all 2 frames present"
}

check_man_pages() {
  command -v man >/dev/null 2>&1 || skip man
  local prefix=$scratch/prefix page name
  install_into "$prefix"
  for name in pal2ntsc vclip; do
    page=$(ls "$prefix/share/man/man1/$name.1"* 2>/dev/null | head -n 1)
    if [ -z "$page" ]; then
      fail "no manual page for $name under $prefix/share/man/man1"
      continue
    fi
    MANWIDTH=80 man --warnings -l "$page" >"$scratch/$name.txt" 2>"$scratch/$name.err"
    [ -s "$scratch/$name.err" ] && fail "man --warnings -l $page printed on standard error:
$(cat "$scratch/$name.err")"
    grep -q '^NAME' "$scratch/$name.txt" || fail "man -l $page printed no NAME section"
    # "man NAME" finds the installed page once the prefix is in MANPATH.
    expect_eq "man -w $name" "$(MANPATH="$prefix/share/man" man -w "$name" 2>&1)" "$page"
  done
}

check_debian_package() {
  command -v dpkg-deb >/dev/null 2>&1 || skip dpkg
  command -v dpkg-shlibdeps >/dev/null 2>&1 || skip dpkg-dev
  command -v cpack >/dev/null 2>&1 || skip cpack
  local out=$scratch/package
  mkdir -p "$out"
  if ! (cd "$build" && cpack -G DEB -B "$out") >"$scratch/cpack.log" 2>&1; then
    cat "$scratch/cpack.log"
    fail "cpack -G DEB"
    return
  fi
  local debs=("$out"/pal2ntsc_*.deb)
  if [ "${#debs[@]}" -ne 1 ] || [ ! -f "${debs[0]}" ]; then
    fail "cpack made ${debs[*]}, not one pal2ntsc_*.deb"
    return
  fi
  local deb=${debs[0]}
  expect_eq "Package" "$(dpkg-deb -f "$deb" Package)" pal2ntsc
  expect_eq "Version" "$(dpkg-deb -f "$deb" Version)" "$version-1"
  expect_eq "Section" "$(dpkg-deb -f "$deb" Section)" video
  expect_eq "Architecture" "$(dpkg-deb -f "$deb" Architecture)" "$(dpkg --print-architecture)"
  [ -n "$(dpkg-deb -f "$deb" Maintainer)" ] || fail "no Maintainer field"
  [ -n "$(dpkg-deb -f "$deb" Description)" ] || fail "no Description field"
  local depends names lib
  depends=$(dpkg-deb -f "$deb" Depends)
  # The package names alone: "libc6 (>= 2.34), libgcc-s1 (>= 3.0)" gives
  # " libc6 libgcc-s1 ".
  names=" $(printf '%s\n' "$depends" | tr ',' '\n' | awk '{print $1}' | tr '\n' ' ')"
  for lib in libc6 libstdc++6 libgcc-s1; do
    [[ $names == *" $lib "* ]] || fail "Depends [$depends] does not name $lib"
  done
  # Only the installed files, at /usr.
  local tree=$scratch/tree
  dpkg-deb -x "$deb" "$tree" || fail "dpkg-deb -x"
  expect_eq "packaged files" "$(files_of "$tree")" "$(wanted_files usr)"
  expect_eq "packaged vclip --version" "$("$tree/usr/bin/vclip" --version 2>&1)" "vclip $version"
}

case $mode in
Prefix) check_prefix ;;
ManPages) check_man_pages ;;
DebianPackage) check_debian_package ;;
*) echo "unknown mode $mode"; exit 2 ;;
esac
if ((failures)); then
  echo "$mode: $failures check(s) failed"
  exit 1
fi
echo "$mode: passed"
