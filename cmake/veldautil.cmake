# libveldautil: the system's own logic. It links the runtime and the C and C++ run-time libraries, nothing else.
file(GLOB VELDAUTIL_SOURCES CONFIGURE_DEPENDS
     frame/*.cpp journal/*.cpp spooler/*.cpp proc/*.cpp index/*.cpp catalog/*.cpp tape/*.cpp fileutil/*.cpp
     srctools/*.cpp background/*.cpp dict/*.cpp)
add_library(veldautil SHARED ${VELDAUTIL_SOURCES})
target_link_libraries(veldautil PUBLIC velda5 PRIVATE velda_options)
set_target_properties(veldautil PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION 0)
