#!/usr/bin/env bash
# Shows the tool at work on real input: a directory tree goes into a new store and out again, and must
# come back as it went in. Then a part of it is copied to another store, and a part removed, the store is
# looked into and compacted.
#
#   demo.sh TOOL [DIR [PICTURES]]
#
# TOOL is the aostorage program. Without DIR the machine's documentation is taken, or where there is
# none, the sources of this project. PICTURES is a directory that gets demo-map.svg and demo-map.html.
set -euo pipefail
export LC_ALL=C # names are bytes

readonly longest_name=60

usage() {
  echo "usage: demo.sh TOOL [DIR [PICTURES]]" >&2
  exit 2
}

say() { printf '==> %s\n' "$*"; }

has_files() { [[ -d $1 && -n $(find "$1" -type f -print -quit 2>/dev/null) ]]; }

default_tree() {
  local here
  here=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.." && pwd)
  if has_files /usr/share/doc; then
    echo /usr/share/doc
  elif [[ -d $here/include ]]; then
    echo "$here"
  else
    echo /etc
  fi
}

# copy_tree FROM TO: the files and directories that a store can take. Links are left out, and so is
# whatever has a name that is too long or holds control characters: it would come back under another.
copy_tree() {
  local from=$1 to=$2
  local unusable=(-regextype posix-extended
    '(' -regex ".*/[^/]{$((longest_name + 1)),}" -o -name '*[[:cntrl:]]*' ')')
  mkdir -p -- "$to"
  cd -- "$from"
  { find . -mindepth 1 "${unusable[@]}" -prune -printf 'left out, its name cannot be kept: %P\n' || true; } |
    cat -v
  { find . -mindepth 1 "${unusable[@]}" -prune -o -type d -print0 || true; } |
    (cd -- "$to" && xargs -0 --no-run-if-empty mkdir -p --)
  { find . -mindepth 1 "${unusable[@]}" -prune -o -type f -readable -print0 || true; } |
    xargs -0 --no-run-if-empty cp --parents --no-preserve=all -t "$to" --
}

bytes_in() { find "$1" -type f -printf '%s\n' | awk '{ sum += $1 } END { printf "%d", sum }'; }

# compare IN OUT: what went into a store and what came out of it, which goes.
compare() {
  if ! diff -r --no-dereference -- "$1" "$2"; then
    echo "demo.sh: what came out differs from what went in" >&2
    exit 1
  fi
  rm -rf -- "$2"
}

# timed LABEL BYTES COMMAND...: runs it and prints seconds and MB/s.
timed() {
  local label=$1 bytes=$2 start end
  shift 2
  start=$(date +%s%N)
  "$@"
  end=$(date +%s%N)
  awk -v label="$label" -v bytes="$bytes" -v nanoseconds=$((end - start)) 'BEGIN {
    seconds = nanoseconds / 1e9
    printf "    %-8s %8.2f s %10.1f MB/s\n", label, seconds, (seconds > 0 ? bytes / 1e6 / seconds : 0)
  }'
}

(($# >= 1 && $# <= 3)) || usage
tool=$(realpath -- "$1")
[[ -x $tool ]] || usage
tree=$(realpath -- "${2-$(default_tree)}")
has_files "$tree" || {
  echo "demo.sh: no files in $tree" >&2
  exit 2
}

pictures=${3+$(realpath -- "$3")}

work=$(mktemp -d)
trap 'rm -rf -- "$work"' EXIT
store=$work/demo.store

say "copying $tree, without links"
(copy_tree "$tree" "$work/in")
files=$(find "$work/in" -type f | wc -l)
folders=$(find "$work/in" -mindepth 1 -type d | wc -l)
bytes=$(bytes_in "$work/in")
say "$files files and $folders folders, $bytes bytes"

say "importing into a new store"
"$tool" create "$store"
timed import "$bytes" "$tool" import "$store" "$work/in"

say "what the store tells"
"$tool" info "$store" | sed 's/^/    /'
say "its root, the first lines of $("$tool" ls "$store" | wc -l)"
"$tool" ls -l "$store" >"$work/listing"
head -n 5 "$work/listing" | sed 's/^/    /'
"$tool" tree "$store" >"$work/listing"
listed=$(wc -l <"$work/listing")
if ((listed != files + folders)); then
  echo "demo.sh: the tree lists $listed streams and folders, not $((files + folders))" >&2
  exit 1
fi

say "exporting"
timed export "$bytes" "$tool" export "$store" "$work/out"

say "comparing"
compare "$work/in" "$work/out"
before=$(stat -c %s "$store")
say "identical: $files files, $folders folders, $bytes bytes; the store file has $before bytes"

say "copying every second root stream to another store, and removing it"
second=$work/second.store
mkdir -p -- "$work/moved/copies"
"$tool" create "$second"
"$tool" mkdir "$second" copies
index=0
while IFS= read -r -d '' name; do
  if ((index++ % 2 == 0)); then
    "$tool" cp "$store:/$name" "$second:copies/"
    "$tool" rm "$store" "/$name"
    mv -- "$work/in/$name" "$work/moved/copies/"
  fi
done < <(find "$work/in" -mindepth 1 -maxdepth 1 -printf '%f\0' | sort -z)

say "appending to two streams in turn, and looking where the bytes are"
for round in {1..12}; do
  for journal in demo-journal demo-log; do
    head -c $((round * 777)) /dev/zero | "$tool" log "$store" "$journal"
  done
done
"$tool" stat --top 3 "$store" | sed 's/^/    /'
say "the file, byte by byte"
"$tool" map "$store"
for form in svg html; do
  "$tool" map "--$form" "$work/demo-map.$form" "$store"
  if [[ -n $pictures ]]; then
    cp -- "$work/demo-map.$form" "$pictures/"
  fi
done
say "as a picture: $(stat -c %s "$work/demo-map.svg") bytes, as a page: $(stat -c %s "$work/demo-map.html") bytes"
"$tool" rm "$store" demo-journal
"$tool" rm "$store" demo-log

say "compacting"
"$tool" compact "$store" | sed 's/^/    /'
if (($(stat -c %s "$store") + $(bytes_in "$work/moved") > before)); then
  echo "demo.sh: the store did not give back the space of what was removed" >&2
  exit 1
fi

say "comparing"
"$tool" export "$store" "$work/out"
compare "$work/in" "$work/out"
"$tool" export "$second" "$work/out"
compare "$work/moved" "$work/out"
say "checking"
for each in "$store" "$second"; do
  "$tool" check --strict "$each" | sed 's/^/    /'
done
say "identical in both stores, and both are sound"
