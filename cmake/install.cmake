# make install: libraries, the programs, the release directory, headers, and what other builds need to find them.
include(CMakePackageConfigHelpers)

set(VELDA_INCLUDE_DIRECTORY ${CMAKE_INSTALL_INCLUDEDIR}/velda)
set(VELDA_PACKAGE_DIRECTORY ${CMAKE_INSTALL_LIBDIR}/cmake/velda)

set_target_properties(veldautil PROPERTIES INSTALL_RPATH "$ORIGIN")
install(TARGETS velda5 veldautil EXPORT velda-targets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(TARGETS velda)
# A link to the program for each command word.
install(CODE "
    set(bin \$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR})
    execute_process(COMMAND \${bin}/velda --names OUTPUT_VARIABLE names COMMAND_ERROR_IS_FATAL ANY)
    string(REPLACE \"\\n\" \";\" names \"\${names}\")
    foreach(name \${names})
        file(CREATE_LINK velda \${bin}/\${name} SYMBOLIC)
    endforeach()")

# The public headers: the umbrella, one contract header and one facade for each family, and what they stand on.
file(GLOB VELDA_PUBLIC_HEADERS CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR} runtime/*.h runtime/*/facade.h)
foreach(directory ${VELDA_RUNTIME_FAMILIES})
    if(EXISTS ${PROJECT_SOURCE_DIR}/runtime/${directory}/${directory}.h)
        list(APPEND VELDA_PUBLIC_HEADERS runtime/${directory}/${directory}.h)
    endif()
endforeach()
list(APPEND VELDA_PUBLIC_HEADERS runtime/value/cell.h runtime/process/subroutine.h runtime/process/stop.h runtime/store/vedi.h
     runtime/journal/config_record.h journal/journal.h journal/log_reading.h
     journal/duplicator/dup_log.h)
foreach(header ${VELDA_PUBLIC_HEADERS})
    cmake_path(GET header PARENT_PATH directory)
    install(FILES ${PROJECT_SOURCE_DIR}/${header} DESTINATION ${VELDA_INCLUDE_DIRECTORY}/${directory})
endforeach()

install(DIRECTORY ${PROJECT_SOURCE_DIR}/share/ DESTINATION ${CMAKE_INSTALL_DATADIR}/velda)
install(EXPORT velda-targets NAMESPACE velda:: DESTINATION ${VELDA_PACKAGE_DIRECTORY})
configure_package_config_file(cmake/velda-config.cmake.in ${CMAKE_BINARY_DIR}/velda-config.cmake
                              INSTALL_DESTINATION ${VELDA_PACKAGE_DIRECTORY})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/velda-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/velda-config.cmake ${CMAKE_BINARY_DIR}/velda-config-version.cmake
        DESTINATION ${VELDA_PACKAGE_DIRECTORY})
configure_file(cmake/velda.pc.in ${CMAKE_BINARY_DIR}/velda.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/velda.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
