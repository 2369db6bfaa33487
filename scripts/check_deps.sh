#!/usr/bin/env bash
# After the builds: everything they used from the system must come from the
# packages scripts/deps.sh installs or what those depend on, so that the
# test command also works on a fresh Debian 12.  Looks at what the builds
# really used: the headers of every compile (the compilers' dependency files
# *.d), the compilers CMake chose, and the shared libraries the built
# programs and libraries load.  Files of the project itself are skipped.
#
#   scripts/check_deps.sh BUILD_DIR...
set -euo pipefail
(( $# > 0 )) || { echo "usage: $0 BUILD_DIR..." >&2; exit 2; }
root=$(cd "$(dirname "$0")/.." && pwd)
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

# The packages allowed: the list and the closure of their dependencies.
mapfile -t listed < <("$root/scripts/deps.sh" --list)
apt-cache depends --recurse --installed --no-recommends --no-suggests --no-conflicts \
    --no-breaks --no-replaces --no-enhances "${listed[@]}" |
  grep -v '^ ' | grep -v '^<' | sed 's/:.*//' | sort -u > "$tmp/allowed"

# What the builds used, as absolute paths outside the project.
for dir in "$@"; do
  [ -d "$dir" ] || { echo "check_deps: no build directory $dir" >&2; exit 2; }
  find "$dir" -name '*.d' -type f -exec cat {} + |
    sed -e 's/\\$//' -e 's/^[^ ]*: *//' | tr ' ' '\n' >> "$tmp/used"
  find "$dir" -maxdepth 3 -name CMakeCache.txt -exec \
    sed -n 's/^CMAKE_\(C\|CXX\)_COMPILER:[A-Z]*=//p' {} + >> "$tmp/used"
  while IFS= read -r -d '' f; do
    [ "$(head -c 4 "$f" | od -An -c | tr -d ' ')" = '177ELF' ] || continue
    ldd "$f" 2>/dev/null | sed -n 's/.*=> \(\/[^ ]*\) (.*/\1/p; s/^\t\(\/[^ ]*\) (.*/\1/p' >> "$tmp/used"
  done < <(find "$dir" -maxdepth 3 -type f \( -perm -u+x -o -name '*.so*' \) -print0)
done
grep '^/' "$tmp/used" | sort -u | while IFS= read -r p; do
  case "$p" in "$root"/*) continue ;; esac
  for dir in "$@"; do case "$p" in "$(cd "$dir" && pwd)"/*) continue 2 ;; esac; done
  printf '%s\t%s\n' "$(realpath -m -s "$p")" "$(realpath -m "$p")"
done > "$tmp/paths"
(( $(wc -l < "$tmp/paths") > 0 )) || { echo "check_deps: the builds used nothing?" >&2; exit 1; }

# Files of the allowed packages; /lib, /bin and /sbin are /usr's on Debian 12.
while read -r pkg; do
  cat /var/lib/dpkg/info/"$pkg".list /var/lib/dpkg/info/"$pkg":*.list 2>/dev/null || true
done < "$tmp/allowed" > "$tmp/files"
awk -F'\t' '
  function norm(p) { sub(/^\/(lib|lib64|bin|sbin)\//, "/usr/&", p); sub(/^\/usr\/\//, "/usr/", p); return p }
  NR == FNR { have[norm($0)] = 1; next }
  !(norm($1) in have) && !(norm($2) in have) { print $1 }' \
  "$tmp/files" "$tmp/paths" > "$tmp/foreign"

used=$(wc -l < "$tmp/paths")
if [ ! -s "$tmp/foreign" ]; then
  echo "check_deps: the $used system files the builds used all come from scripts/deps.sh's packages"
  exit 0
fi
echo "check_deps: the builds used files that scripts/deps.sh does not install:"
while IFS= read -r p; do
  owner=$(dpkg-query -S "$p" 2>/dev/null | head -n 1 | sed 's/: .*//') ||
    owner=""
  echo "  $p (${owner:-no package})"
done < "$tmp/foreign"
exit 1
