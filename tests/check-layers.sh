#!/bin/sh
# Fails when a file under src/ includes a header of a layer it must not use.
# The layers and what each may use, as the libraries link (cmake/Sources.cmake).
set -eu
cd "$1"
allowed() {
  case $1 in
    util | trace) echo "util trace" ;;
    com) echo "com util trace" ;;
    pac) echo "pac com util trace" ;;
    dhcp) echo "dhcp util trace" ;;
    resolver) echo "resolver pac dhcp com util trace" ;;
    server) echo "server resolver pac dhcp com util trace" ;;
    *) echo "" ;;
  esac
}
layers="util trace com pac dhcp resolver server"
bad=0
for src in $(find src -type f \( -name '*.cpp' -o -name '*.h' \) | sort); do
  own=$(echo "$src" | cut -d/ -f2)
  may=$(allowed "$own")
  if [ -z "$may" ]; then
    echo "$src: src/$own is no layer of the build"
    bad=1
    continue
  fi
  # "layer/header.h", and the pac layer's generated type-library header.
  for used in $(sed -n -e 's/^[[:space:]]*#[[:space:]]*include[[:space:]]*"\([a-z]*\)\/.*/\1/p' \
                       -e 's/^[[:space:]]*#[[:space:]]*include[[:space:]]*"PacHelperTypeLib\.h".*/pac/p' "$src"); do
    case " $layers " in *" $used "*) ;; *) continue ;; esac
    case " $may " in
      *" $used "*) ;;
      *) echo "$src: includes a header of $used, a layer $own must not use"; bad=1 ;;
    esac
  done
done
[ "$bad" = 0 ] && echo "every include runs down the layers"
exit "$bad"
