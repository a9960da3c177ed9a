#!/bin/sh
# Fails when the tree would build differently where letter case does not
# count in file names (every native Windows and macOS build):
#  - a quoted include names, in the including file's own folder, a file that
#    exists there only under another letter case (the compiler there would
#    take that file, or the including file itself);
#  - two tracked paths differ only by letter case (one would overwrite the
#    other on check-out).
set -eu
cd "$1"
paths=$(mktemp)
trap 'rm -f "$paths"' EXIT
if git rev-parse --is-inside-work-tree >/dev/null 2>&1; then
  git ls-files >"$paths"
else
  find . -type f ! -path './build*' ! -path './.git/*' | sed 's|^\./||' >"$paths"
fi
bad=0

# Every path and every folder above it, folded to lower case.
clashes=$(awk -F/ '{ p = ""; for (i = 1; i <= NF; i++) { p = (i == 1) ? $i : p "/" $i; print p } }' "$paths" |
  sort -u | awk '{ k = tolower($0); if (k in seen && seen[k] != $0) print seen[k] " and " $0; else seen[k] = $0 }')
if [ -n "$clashes" ]; then
  echo "$clashes" | sed 's/^/paths differ only by letter case: /'
  bad=1
fi

# Quoted includes against the including file's folder.
for src in $(grep -E '\.(c|cc|cpp|h|hpp|rc|idl)$' "$paths"); do
  [ -f "$src" ] || continue
  dir=$(dirname "$src")
  for name in $(sed -n 's/^[[:space:]]*#[[:space:]]*include[[:space:]]*"\([^"]*\)".*/\1/p' "$src"); do
    want="$dir/$name"
    [ "$dir" = . ] && want=$name
    [ -e "$want" ] && continue
    other=$(awk -v w="$want" 'tolower($0) == tolower(w) { print; exit }' "$paths")
    if [ -n "$other" ]; then
      echo "$src: #include \"$name\" would open $other where letter case does not count"
      bad=1
    fi
  done
done

[ "$bad" = 0 ] && echo "no include or path depends on letter case"
exit "$bad"
