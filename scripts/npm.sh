# Sourced, after common.sh, by scripts that fetch a package of the npm registry.
. "$root/scripts/apt.sh" # for verify

# fetch_npm_package NAME VERSION SHA256 CHECK FILE...
#
# Fetches the files of one version of a package, by their paths in its archive, into .deps/NAME, with the
# archive's checksum verified. Does nothing when they are there; with --check as CHECK it only tells, by its
# exit status, whether they are.
fetch_npm_package() {
  package=$1
  version=$2
  sha256=$3
  check=$4
  shift 4
  target=$root/.deps/$package
  if is_fetched "$@"; then
    exit 0
  fi
  if [ "$check" = --check ]; then
    exit 1
  fi

  mkdir -p "$root/.deps"
  work=$(mktemp -d "$root/.deps/fetch.XXXXXX")
  trap 'rm -rf "$work"' EXIT
  trap 'exit 1' HUP INT TERM
  say "Fetching $package $version"
  (cd "$work" && npm pack "$package@$version" --ignore-scripts --loglevel=error \
    --cache "$work/npm" </dev/null >/dev/null) || die "$package $version could not be fetched with npm."
  verify "$work/$package-$version.tgz" "$sha256"
  tar -xzf "$work/$package-$version.tgz" -C "$work" "$@"
  mkdir "$work/ready"
  (cd "$work" && mv "$@" "$work/ready/")
  echo "$version" >"$work/ready/VERSION"
  # Only a whole one takes the place, so a stop at any moment leaves nothing half done.
  if [ -e "$target" ]; then
    mv "$target" "$work/old"
  fi
  mv "$work/ready" "$target"
}

is_fetched() {
  [ "$(cat "$target/VERSION" 2>/dev/null)" = "$version" ] || return 1
  for file in "$@"; do
    [ -f "$target/${file##*/}" ] || return 1
  done
}
