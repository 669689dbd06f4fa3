#!/bin/sh
# man_page.sh HELP2MAN PROGRAM NAME INCLUDE OUTPUT
# Writes OUTPUT, the gzipped man page of PROGRAM, from the program's own --help and --version through
# help2man, with the sections of INCLUDE (help2man's include format) and, for a program with sub-commands,
# a COMMANDS section holding each sub-command's --help. NAME is the one-line summary under NAME.
set -eu
help2man=$1 program=$2 name=$3 include=$4 output=$5
work=$(mktemp -d "${TMPDIR:-/tmp}/halqvantor-man.XXXXXX")
trap 'rm -rf "$work"' EXIT

# Sub-commands: the two-space indented names in the "Subcommands:" block of the program's help.
commands=$("$program" --help | awk '/^(Sub ?|SUB)?[Cc]ommands:/ { on = 1; next }
                                    on && /^$/ { exit }
                                    on && /^  [a-z][a-z0-9-]*( |$)/ { print $1 }')
extra=""
if [ -n "$commands" ]; then
  {
    echo "[COMMANDS]"
    for command in $commands; do
      printf '.SS "%s %s"\n.nf\n' "$(basename "$program")" "$command"
      # The help up to the footer every command repeats, without trailing blank lines, escaped for roff.
      "$program" "$command" --help |
        awk '/^Examples:/ { exit } /^$/ { blank++; next } { while (blank) { print ""; blank-- } print }' |
        sed -e 's/\\/\\e/g' -e 's/-/\\-/g' -e "s/^[.']/\\\\\\&&/"
      echo ".fi"
    done
  } >"$work/commands.h2m"
  extra="--include=$work/commands.h2m"
fi

# shellcheck disable=SC2086
"$help2man" --no-info --section=1 --name="$name" --include="$include" $extra --output="$work/page.1" "$program"
gzip -9n <"$work/page.1" >"$output.part"
mv "$output.part" "$output"
