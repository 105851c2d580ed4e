# libqv.so and, for tests that look inside, the same objects as an archive.
find_package(ZLIB REQUIRED)
find_package(JPEG REQUIRED)
find_package(PNG REQUIRED)
find_package(TIFF REQUIRED)
find_package(SQLite3 REQUIRED)
find_package(Threads REQUIRED)
set(QV_LIBRARIES ZLIB::ZLIB JPEG::JPEG PNG::PNG TIFF::TIFF SQLite::SQLite3 Threads::Threads)

set(QV_SOURCES "")
foreach(folder platform core threads files config measurement numerics images modtran locale)
  file(GLOB_RECURSE found CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${folder}/*.cpp)
  list(APPEND QV_SOURCES ${found})
endforeach()

add_library(qv_objects OBJECT ${QV_SOURCES})
target_include_directories(qv_objects PUBLIC ${PROJECT_SOURCE_DIR}/include PRIVATE ${PROJECT_SOURCE_DIR})
target_compile_definitions(qv_objects PRIVATE QV_BUILDING)
target_link_libraries(qv_objects PRIVATE qv_build_flags ${QV_LIBRARIES})

add_library(qv SHARED)
add_library(qv::qv ALIAS qv)
set_target_properties(qv PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
target_include_directories(qv PUBLIC
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_compile_features(qv PUBLIC cxx_std_20)
target_link_libraries(qv PRIVATE qv_objects $<BUILD_INTERFACE:qv_build_flags> ${QV_LIBRARIES})

add_library(qv_internal STATIC EXCLUDE_FROM_ALL $<TARGET_OBJECTS:qv_objects>)
target_include_directories(qv_internal PUBLIC ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR})
target_link_libraries(qv_internal PUBLIC ${QV_LIBRARIES})

install(TARGETS qv EXPORT qvTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY include/qv DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT qvTargets NAMESPACE qv:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/qv)

include(CMakePackageConfigHelpers)
configure_package_config_file(cmake/qvConfig.cmake.in qvConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/qv)
write_basic_package_version_file(qvConfigVersion.cmake COMPATIBILITY SameMinorVersion)
# Found from where the file stands, so that the tree may be installed to any prefix and moved.
file(RELATIVE_PATH QV_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
string(REGEX REPLACE "/$" "" QV_PC_TO_PREFIX "${QV_PC_TO_PREFIX}")
configure_file(cmake/qv.pc.in qv.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/qvConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/qvConfigVersion.cmake
  cmake/Resources.cmake cmake/WriteResources.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/qv)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/qv.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
