#!/usr/bin/env bash
# The bash completion knows what --help lists, and completes files and paths in stores.
#   check_completion.bash TOOL COMPLETION MANUAL WORK_DIR
set -euo pipefail
tool=$(realpath -- "$1") manual=$(realpath -- "$3")
source "${BASH_SOURCE[0]%/*}/help_words.bash"
source "$2"

# completions WORD...: what the last word can become, sorted, one a line.
completions() {
  COMP_WORDS=("$tool" "$@")
  COMP_CWORD=$#
  _aostorage
  printf '%s\n' "${COMPREPLY[@]}" | sort
}

# expect WANTED WORD...: with the words that are wanted separated by commas.
expect() {
  local wanted=$1 found
  shift
  found=$(completions "$@" | paste -sd,)
  [[ $found == "$wanted" ]] || complain "after '$*': '$found' instead of '$wanted'"
}

# The verbs are those of the manual page, and --help lists none besides.
verbs=$(completions '' | grep -v ^-)
in_manual=$(awk '/^\.It Cm / { print $3 }' "$manual" | sort -u)
[[ $verbs == "$in_manual" ]] || complain "verbs differ from the manual page: $(diff <(echo "$verbs") <(echo "$in_manual"))"
for verb in $(help_verbs); do
  wanted=$(help_options "$verb" | sort)
  found=$(completions "$verb" -)
  [[ $found == "$wanted" ]] || complain "$verb: $(diff <(echo "$found") <(echo "$wanted"))"
done

rm -rf -- "$4"
mkdir -p -- "$4/a directory"
cd -- "$4"
"$tool" create notes.aos
"$tool" mkdir -p notes.aos 'letters/old ones'
for path in letters/first letters/$'fi\nfth' 'letters/old ones/zero' last; do
  "$tool" put notes.aos "$path" </dev/null
done

expect 'put' pu
expect 'a directory,notes.aos' ls ''
expect 'last,letters/' ls notes.aos ''
expect 'letters/first,letters/old ones/' cat notes.aos letters/
expect 'letters/old ones/zero' cat notes.aos 'letters/old\ ones/'
expect 'letters/' put --reserve 5 notes.aos le
expect 'letters/' put --reserve=5 ./notes.aos le
expect 'letters/' import notes.aos dir --into le
expect 'letters/first' cp notes.aos : letters/f
expect 'last,letters/' cp notes.aos :
expect 'notes.aos:last' cp notes.aos:la
expect 'a directory' import notes.aos ''
expect 'always,auto' ls --color = a
expect 'slot' ls --sort s
expect '' cat none.aos l
expect '' cat notes.aos last ''
expect '' '$(touch run)' ''
[[ ! -e run ]] || complain "what was typed was run"
exit "$failed"
