#!/usr/bin/env bash
# check_matrix.bash SOURCE_DIR WORK_DIR: builds script.cpp and the library with several compilers,
# levels of optimisation and signs of char, and compares what the programs leave. Four builds in
# which each compiler meets each level and each sign once; with AOSTORAGE_TEST_SIZE=full all eight.
set -euo pipefail
source_dir=$1 work=$2
variants=("g++ -O0 -fsigned-char" "g++ -O3 -funsigned-char"
  "clang++ -O0 -funsigned-char" "clang++ -O3 -fsigned-char")
if [[ ${AOSTORAGE_TEST_SIZE-} == full ]]; then
  variants+=("g++ -O0 -funsigned-char" "g++ -O3 -fsigned-char"
    "clang++ -O0 -fsigned-char" "clang++ -O3 -funsigned-char")
fi

rm -rf -- "$work"
mkdir -p -- "$work"
# A source for each directory of the library, which takes in all that lies there: many times faster
# to compile than the files one by one.
for dir in "$source_dir"/src/*/; do
  for file in "$dir"*.cpp; do echo "#include \"$file\""; done >"$work/$(basename "$dir").cpp"
done

first=
for variant in "${variants[@]}"; do
  read -ra compiler <<<"$variant"
  out=$work/${variant//[ -]/}
  mkdir -- "$out" "$out/once" "$out/twice"
  for unit in "$source_dir/tests/matrix/script.cpp" "$work"/*.cpp; do
    "${compiler[@]}" -std=c++17 -DNDEBUG -D_FILE_OFFSET_BITS=64 -DAOSTORAGE_STATIC \
      -I"$source_dir/include" -I"$source_dir/src" -c "$unit" -o "$out/$(basename "$unit" .cpp).o"
  done
  "${compiler[@]}" "$out"/*.o -o "$out/script"
  "$out/script" "$out/once"
  # What is allocated and freed holds other bytes this time.
  MALLOC_PERTURB_=90 "$out/script" "$out/twice"
  first=${first:-$out/once}
  for run in once twice; do
    diff --recursive --brief "$first" "$out/$run" || { echo "differs: $variant, $run"; exit 1; }
  done
  echo "$variant: the same, $(cat "$out"/once/* | wc -c) bytes"
done
