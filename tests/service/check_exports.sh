#!/bin/sh
# check_exports.sh NM LIBRARY SYMBOL...: the library exports exactly these symbols.
set -eu
nm=$1
library=$2
shift 2
exported=$("$nm" -D --defined-only --format=posix "$library" | cut -d ' ' -f 1 | sort)
expected=$(printf '%s\n' "$@" | sort)
if [ "$exported" != "$expected" ]; then
    echo "exported:"
    echo "$exported"
    echo "expected:"
    echo "$expected"
    exit 1
fi
