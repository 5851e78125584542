# cmake --install: the library, its public headers under include/veltrane/, a
# CMake package (find_package(Veltrane CONFIG) gives Veltrane::veltrane) with
# its version file, and veltrane.pc for pkg-config.
include(CMakePackageConfigHelpers)

install(TARGETS veltrane EXPORT VeltraneTargets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
foreach(layer IN LISTS VELTRANE_LAYERS)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/${layer}/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/veltrane/${layer}
          FILES_MATCHING PATTERN "*.h"
          PATTERN "ValueNodes.h" EXCLUDE  # the value model's insides
          PATTERN "Curl.h" EXCLUDE        # the transports' libcurl handles
          PATTERN "HTTPEngine.h" EXCLUDE  # the transports' engine
          PATTERN "SQLite.h" EXCLUDE)     # the stores' SQLite handles
endforeach()
install(FILES ${PROJECT_SOURCE_DIR}/include/Veltrane.h ${VELTRANE_INCLUDE}/veltrane/Version.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/veltrane)

set(VELTRANE_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Veltrane)
install(EXPORT VeltraneTargets NAMESPACE Veltrane:: DESTINATION ${VELTRANE_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/VeltraneConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/VeltraneConfig.cmake INSTALL_DESTINATION ${VELTRANE_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VeltraneConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/VeltraneConfig.cmake ${PROJECT_BINARY_DIR}/VeltraneConfigVersion.cmake
        DESTINATION ${VELTRANE_CMAKE_DIR})

# A static library needs its dependencies linked by the user: pkg-config then
# names them as requirements; a shared one keeps them private.
if(BUILD_SHARED_LIBS)
  set(VELTRANE_PC_REQUIRES "")
  set(VELTRANE_PC_REQUIRES_PRIVATE "libcurl sqlite3 expat simdjson")
else()
  set(VELTRANE_PC_REQUIRES "libcurl sqlite3 expat simdjson")
  set(VELTRANE_PC_REQUIRES_PRIVATE "")
endif()
# Relocatable: paths from the .pc file's own place.
file(RELATIVE_PATH VELTRANE_PC_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(${PROJECT_SOURCE_DIR}/cmake/veltrane.pc.in ${PROJECT_BINARY_DIR}/veltrane.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/veltrane.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
