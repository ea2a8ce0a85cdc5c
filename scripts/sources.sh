# Sourced, after common.sh and apt.sh, by scripts that build libraries from the sources of Debian
# packages, each of one version and with its checksum verified. They set $work (a folder of their
# own, with a file log) and $target (where the libraries go) before they call anything.
release=bookworm
cfitsio_version=4.2.0-3
tiff_version=4.5.0-6+deb12u4

# Fetches files of the source package $1 in the version $2 with the options of apt that follow.
fetch_source() {
  say "Fetching the sources of $1 $2"
  package=$1=$2
  shift 2
  for mirror in $(mirrors); do
    if use_apt_source "deb-src [$(signed_by)] $mirror $release main" &&
      (cd "$work" && apt_get_apart source --download-only "$@" "$package"); then
      return
    fi
  done
  cat "$work/log" >&2
  die "The sources $package could not be fetched from a mirror that apt knows."
}

# Fetches and unpacks the upstream archive $3 with the checksum $4 of the source package $1 in the
# version $2. Debian's patches to it do not touch what is built here.
unpack_upstream() {
  fetch_source "$1" "$2" --tar-only
  verify "$work/$3" "$4"
  mkdir "$work/$1"
  tar -xf "$work/$3" -C "$work/$1" --strip-components=1
}

# Fetches the source package $1 in the version $2 and unpacks it with Debian's security patches. Its
# description has the checksum $3, and in it are those of the other files.
unpack_patched() {
  fetch_source "$1" "$2"
  verify "$work/$1_$2.dsc" "$3"
  dpkg-source --extract "$work/$1_$2.dsc" "$work/$1" >>"$work/log" 2>&1 || {
    cat "$work/log" >&2
    die "The sources of $1 could not be unpacked."
  }
}

# Configures, builds and installs $1 with the CMake options that follow.
build() {
  name=$1
  shift
  say "Building $name"
  {
    cmake -S "$work/$name" -B "$work/build-$name" -G Ninja -DCMAKE_BUILD_TYPE=Release \
      -DCMAKE_INSTALL_PREFIX="$target" -DCMAKE_PREFIX_PATH="$target" -DCMAKE_INSTALL_LIBDIR=lib \
      -DCMAKE_POSITION_INDEPENDENT_CODE=ON "$@" &&
      ninja -j "${NICE_JOBS-2}" -C "$work/build-$name" install
  } >>"$work/log" 2>&1 || {
    tail -n 50 "$work/log" >&2
    die "$name could not be built."
  }
}

unpack_cfitsio() {
  unpack_upstream cfitsio "$cfitsio_version" cfitsio_4.2.0.orig.tar.gz \
    eba53d1b3f6e345632bb09a7b752ec7ced3d63ec5153a848380f3880c5d61889
}

unpack_tiff() {
  unpack_patched tiff "$tiff_version" \
    b32082304d725936078d687303fcf771c9ecf738b505f9a66a29e8ba282c8615
}
