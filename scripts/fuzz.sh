# Sourced by the scripts that run fuzz targets, after common.sh.

fuzz_targets() {
  for source in "$root"/tests/fuzz/*Fuzz.cpp; do
    basename "$source" .cpp
  done
}

# Builds the targets and makes the seeds that they start from.
prepare_fuzzing() {
  "$root/scripts/setup" ci
  build_preset fuzz fuzz_targets
  /usr/bin/python3 "$root/tests/fuzz/make_seeds.py" "$root/build/fuzz/seeds"
}
