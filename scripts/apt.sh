# Sourced by scripts that fetch a package apart from the system's own; they set $work (a folder of
# their own, with a file log) first.

# Fails unless the file $1 has the SHA-256 checksum $2.
verify() {
  echo "$2  $1" | sha256sum --check --status ||
    die "$1 is not the file that was expected: its SHA-256 checksum differs. Nothing was installed."
}

# Mirrors of apt's own configuration, those of the running release first.
mirrors() {
  running=$(sed -n 's/^VERSION_CODENAME=//p' /etc/os-release)
  # shellcheck disable=SC2016 # apt expands
  apt-get indextargets --format '$(COMPONENT) $(RELEASE) $(SITE)' 'Created-By: Packages' |
    sed -n "s/^main $running /1 /p; s/^main [a-z]* /2 /p" | sort -u | cut -d' ' -f2
}

# The option of a sources list that names Debian's key ring, where there is one.
signed_by() {
  for keyring in /usr/share/keyrings/debian-archive-keyring.pgp \
    /usr/share/keyrings/debian-archive-keyring.gpg; do
    [ ! -f "$keyring" ] || key="signed-by=$keyring"
  done
  echo "${key-}"
}

# apt with a sources list, lists and a cache of its own, so that the system's stay as they are.
apt_get_apart() {
  apt-get -qq -o Dir::Etc::SourceList="$work/sources.list" -o Dir::Etc::SourceParts=- \
    -o Dir::State::Lists="$work/lists" -o Dir::Cache="$work/cache" \
    -o APT::Architecture=amd64 -o APT::Architectures=amd64 -o APT::Sandbox::User=root \
    -o Acquire::Languages=none "$@" </dev/null >>"$work/log" 2>&1
}

# Makes apt_get_apart read the sources list with the one line $1.
use_apt_source() {
  echo "$1" >"$work/sources.list"
  rm -rf "$work/lists" "$work/cache"
  mkdir -p "$work/lists/partial" "$work/cache/archives/partial"
  apt_get_apart update
}
