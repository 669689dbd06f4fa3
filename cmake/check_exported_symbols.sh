#!/usr/bin/env bash
# Fails when the shared library exports anything but the public API: every defined dynamic symbol must be
# a class or function that a public header marks HALQVANTOR_API (or the type information of such a class).
#   check_exported_symbols.sh LIBRARY INCLUDE_DIR
set -euo pipefail
lib=$1
include=$2

# The names the public headers export: classes and functions marked HALQVANTOR_API.
names=$(grep -hE 'HALQVANTOR_API ' "$include"/halqvantor/*.h | grep -vE '^[[:space:]]*(//|#)' |
        grep -oE 'HALQVANTOR_API [^(;{]*' |
        sed -E 's/^.*HALQVANTOR_API //; s/ : .*$//; s/[[:space:]]+$//; s/.*[^A-Za-z0-9_]//' | sort -u | paste -sd'|')
[ -n "$names" ] || { echo "no HALQVANTOR_API declarations found under $include" >&2; exit 1; }
# A function that returns a std::string carries the ABI tag [abi:cxx11] after its name.
allowed="^((typeinfo( name)? for|vtable for|non-virtual thunk to) )?halqvantor::(dispatch::)?($names)(\\[abi:[a-z0-9]+\\])?(::|\\(|$)"

symbols=$(nm -D --defined-only -C "$lib" | cut -d' ' -f3-)
[ -n "$symbols" ] || { echo "$lib exports nothing" >&2; exit 1; }
others=$(grep -vE "$allowed" <<<"$symbols" | grep -vE '^halqvantor::clsVantor::Impl' || true)
inner=$(grep -E 'clsVantor::Impl' <<<"$symbols" || true)
if [ -n "$others$inner" ]; then
  echo "$lib exports symbols outside the public API:" >&2
  printf '%s\n' "$others" "$inner" | sed '/^$/d' >&2
  exit 1
fi
echo "$(wc -l <<<"$symbols") exported symbols, all public API"
