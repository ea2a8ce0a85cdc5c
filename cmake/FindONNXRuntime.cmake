# Finds ONNX Runtime: the target ONNXRuntime::ONNXRuntime and ONNXRuntime_LIBRARY, the file of the
# shared library that has to lie beside the program.
#
# Looked for in this order: ONNXRUNTIME_ROOT (CMake or environment variable; an unpacked official
# release with include/ and lib/), the system's CMake package, what scripts/setup has fetched.
set(ONNXRUNTIME_ROOT "$ENV{ONNXRUNTIME_ROOT}" CACHE PATH "An unpacked ONNX Runtime release")

function(nebulex_find_onnxruntime_in root)
  find_path(ONNXRuntime_INCLUDE_DIR onnxruntime_cxx_api.h
    PATHS "${root}/include" PATH_SUFFIXES onnxruntime NO_DEFAULT_PATH)
  find_library(ONNXRuntime_LIBRARY NAMES libonnxruntime.so.1 libonnxruntime.so onnxruntime
    PATHS "${root}/lib" NO_DEFAULT_PATH)
endfunction()

if(ONNXRUNTIME_ROOT)
  nebulex_find_onnxruntime_in("${ONNXRUNTIME_ROOT}")
else()
  find_package(onnxruntime 1.24 CONFIG QUIET)
  if(onnxruntime_FOUND)
    get_target_property(ONNXRuntime_INCLUDE_DIR onnxruntime::onnxruntime
      INTERFACE_INCLUDE_DIRECTORIES)
    get_target_property(ONNXRuntime_LIBRARY onnxruntime::onnxruntime LOCATION)
  else()
    nebulex_find_onnxruntime_in("${PROJECT_SOURCE_DIR}/.deps/onnxruntime")
  endif()
endif()

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(ONNXRuntime
  REQUIRED_VARS ONNXRuntime_LIBRARY ONNXRuntime_INCLUDE_DIR
  REASON_FAILURE_MESSAGE "Run scripts/setup, or set ONNXRUNTIME_ROOT to an unpacked release.")

if(ONNXRuntime_FOUND AND NOT TARGET ONNXRuntime::ONNXRuntime)
  add_library(ONNXRuntime::ONNXRuntime SHARED IMPORTED)
  set_target_properties(ONNXRuntime::ONNXRuntime PROPERTIES
    IMPORTED_LOCATION "${ONNXRuntime_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${ONNXRuntime_INCLUDE_DIR}")
endif()
