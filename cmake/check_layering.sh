#!/usr/bin/env bash
# Fails when an include runs against the layers of src/: platform <- link <- {archive, documents, users}
# <- component. A layer includes its own headers, those of the layers below it and the public headers.
#   check_layering.sh SRC_DIR
set -euo pipefail
src=$1
declare -A forbidden=(
  [platform]='link|archive|documents|users|component'
  [link]='archive|documents|users|component'
  [archive]='documents|users|component'
  [documents]='archive|users|component'
  [users]='archive|documents|component'
)
status=0
for layer in "${!forbidden[@]}"; do
  [ -d "$src/$layer" ] || continue
  if hits=$(grep -rnE "^[[:space:]]*#[[:space:]]*include[[:space:]]*\"(${forbidden[$layer]})/" "$src/$layer"); then
    echo "$layer/ includes a layer above or beside it:" >&2
    echo "$hits" | sed "s|^$src/||" >&2
    status=1
  fi
done
[ $status -eq 0 ] && echo "includes run platform <- link <- {archive, documents, users} <- component"
exit $status
