# Sourced, after common.sh and apt.sh, by scripts that build libraries from the sources of Debian
# packages, each of one version and with its checksum verified. They set $work (a folder of their
# own, with a file log) and $target (where the libraries go) before they call anything.
release=bookworm
cfitsio_version=4.2.0-3
tiff_version=4.5.0-6+deb12u4
opencv_version=4.6.0+dfsg-12
jpeg_version=1:2.1.5-2
png_version=1.6.39-2+deb12u5

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
  dsc=$work/$1_${2#*:}.dsc # without the version's epoch
  verify "$dsc" "$3"
  dpkg-source --extract "$dsc" "$work/$1" >>"$work/log" 2>&1 || {
    cat "$work/log" >&2
    die "The sources of $1 could not be unpacked."
  }
}

# Configures, builds and installs $1 with the CMake options that follow, and with those of
# $all_options where it is set.
build() {
  name=$1
  shift
  # shellcheck disable=SC2086 # a list of options
  set -- ${all_options-} "$@"
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

unpack_jpeg() {
  unpack_patched libjpeg-turbo "$jpeg_version" \
    d718ead0dfbcbc8523665c02a7f7152e31039ded641d022868722623bb3b486d
}

unpack_png() {
  unpack_patched libpng1.6 "$png_version" \
    7b86211030a34deb6b0a2cd7e1d9db0fe92443fd30cab537fb89b1e7f7c9f188
}

unpack_opencv() {
  unpack_upstream opencv "$opencv_version" opencv_4.6.0+dfsg.orig.tar.xz \
    40a59ba7e5c18a43652de0a08733c9843a39bba619b1f3e26a5fac4a6f041423
}

build_cfitsio() {
  build cfitsio -DBUILD_SHARED_LIBS=OFF -DUSE_CURL=OFF -DUSE_PTHREADS=ON -DTESTS=OFF -DUTILS=OFF
}

# Builds libtiff with the options that follow, without JBIG, whose library is under the GPL.
build_tiff() {
  build tiff -Djbig=OFF -Dcxx=OFF -Dtiff-tools=OFF -Dtiff-tests=OFF -Dtiff-contrib=OFF \
    -Dtiff-docs=OFF "$@"
}

# Builds of OpenCV what the program uses and nothing else. The sets of processor instructions are
# the same on every platform, for the samples are to be.
build_opencv() {
  without=
  for part in 1394 ADE DIRECTX DSHOW EIGEN FFMPEG GDAL GDCM GSTREAMER GTK IMGCODEC_HDR IMGCODEC_PFM \
    IMGCODEC_PXM IMGCODEC_SUNRASTER IPP ITT JASPER LAPACK MSMF OPENCL OPENEXR OPENJPEG OPENMP \
    PROTOBUF QUIRC TBB V4L VA VULKAN WEBP WIN32UI; do
    without="$without -DWITH_$part=OFF"
  done
  for part in EXAMPLES JAVA JPEG PERF_TESTS PNG SHARED_LIBS TESTS TIFF ZLIB opencv_apps \
    opencv_python2 opencv_python3; do
    without="$without -DBUILD_$part=OFF"
  done
  # shellcheck disable=SC2086 # a list of options
  build opencv -DBUILD_LIST=core,imgproc,imgcodecs -DWITH_TIFF=ON -DWITH_PNG=ON -DWITH_JPEG=ON \
    -DCPU_BASELINE=SSE3 -DCPU_DISPATCH=AVX2 -DOPENCV_GENERATE_PKGCONFIG=OFF $without
}

# Copies the licences of OpenCV, CFITSIO and libtiff into $target/licenses.
copy_licences() {
  mkdir -p "$target/licenses/opencv" "$target/licenses/cfitsio" "$target/licenses/tiff"
  cp "$work/opencv/LICENSE" "$work/opencv/COPYRIGHT" "$target/licenses/opencv/"
  cp "$work/cfitsio/License.txt" "$target/licenses/cfitsio/"
  cp "$work/tiff/LICENSE.md" "$target/licenses/tiff/"
}
