# What --help lists, for the checks that compare other texts with it. Needs $tool.

help_verbs() { "$tool" --help | awk '/^Subcommands:/ { on = 1; next } !NF { on = 0 } on { print $1 }'; }

# help_options VERB: one a line, short and long.
help_options() {
  "$tool" "$1" --help | awk '/^ +-/ { gsub(",", "\n", $1); print $1 }'
}

failed=0
complain() {
  printf '%s\n' "$*" >&2
  failed=1
}
