# libveldautil: the system's own logic. It links the runtime and the C and C++ run-time libraries, nothing else.
file(GLOB VELDAUTIL_SOURCES CONFIGURE_DEPENDS
     frame/*.cpp journal/*.cpp journal/duplicator/*.cpp spooler/*.cpp proc/*.cpp index/*.cpp catalog/*.cpp tape/*.cpp fileutil/*.cpp
     srctools/*.cpp background/*.cpp dict/*.cpp)
# The objects are built once; fuzz targets link them with the static runtime.
add_library(veldautil_objects OBJECT ${VELDAUTIL_SOURCES})
target_link_libraries(veldautil_objects PRIVATE velda_options)
target_compile_features(veldautil_objects PRIVATE cxx_std_20)

add_library(veldautil SHARED $<TARGET_OBJECTS:veldautil_objects>)
target_link_libraries(veldautil PUBLIC velda5)
target_link_options(veldautil PRIVATE -Wl,--version-script=${PROJECT_SOURCE_DIR}/cmake/exports.map)
add_library(veldautil_static STATIC EXCLUDE_FROM_ALL $<TARGET_OBJECTS:veldautil_objects>)
target_link_libraries(veldautil_static PUBLIC velda5_static)

set_target_properties(veldautil PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION 0)
