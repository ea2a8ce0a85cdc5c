# Finds the OpenCV modules that the program uses: the targets opencv_core, opencv_imgproc and
# opencv_imgcodecs. OpenCV's own CMake package comes first; a distribution that splits OpenCV into a
# package a module may leave it out, and the libraries are then taken by name.
find_package(OpenCV QUIET CONFIG COMPONENTS core imgproc imgcodecs)

if(NOT OpenCV_FOUND)
  find_path(OpenCVModules_INCLUDE_DIR opencv2/core.hpp PATH_SUFFIXES opencv4)
  set(required OpenCVModules_INCLUDE_DIR)
  foreach(module core imgproc imgcodecs)
    find_library(OpenCVModules_${module}_LIBRARY opencv_${module})
    list(APPEND required OpenCVModules_${module}_LIBRARY)
  endforeach()
else()
  set(required OpenCV_VERSION)
endif()

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(OpenCVModules
  REQUIRED_VARS ${required}
  REASON_FAILURE_MESSAGE "Install the development files of OpenCV core, imgproc and imgcodecs.")

if(OpenCVModules_FOUND AND NOT TARGET opencv_core)
  foreach(module core imgproc imgcodecs)
    add_library(opencv_${module} SHARED IMPORTED)
    set_target_properties(opencv_${module} PROPERTIES
      IMPORTED_LOCATION "${OpenCVModules_${module}_LIBRARY}"
      INTERFACE_INCLUDE_DIRECTORIES "${OpenCVModules_INCLUDE_DIR}")
  endforeach()
  target_link_libraries(opencv_imgproc INTERFACE opencv_core)
  target_link_libraries(opencv_imgcodecs INTERFACE opencv_imgproc)
endif()
