# What a host installs: the library with the platform stand-in it links, the public headers under
# include/quillmere/, a CMake package (find_package(Quillmere CONFIG) gives Quillmere::quillmere)
# and quillmere.pc. Everything else of the tree stays out.
include(CMakePackageConfigHelpers)

# Public headers, installed side by side; they name each other as siblings.
install(FILES
  engine/SDK.h engine/Configuration.h engine/RequestSanitizer.h engine/ResponseSanitizer.h
  engine/QuillmereVersion.h capture/network/Request.h capture/network/Response.h
  ${QLM_EXPORT_HEADER_DIR}/QuillmereExport.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/quillmere)
# The platform headers those include, as they are the platform's own: quillmere/platform/..., found
# through qlm_platform's include directory.
set(QLM_PUBLIC_PLATFORM_HEADERS
  dispatch/DispatchSemaphore.h dispatch/DispatchTime.h
  foundation/NSData.h foundation/NSDictionary.h foundation/NSError.h foundation/NSObject.h
  foundation/NSString.h
  objc/Runtime.h
  url/NSHTTPURLResponse.h url/NSInputStream.h url/NSURL.h url/NSURLRequest.h url/NSURLResponse.h)
foreach(header ${QLM_PUBLIC_PLATFORM_HEADERS})
  get_filename_component(_dir ${header} DIRECTORY)
  install(FILES platform/${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/quillmere/platform/${_dir})
endforeach()

# A static library brings the libraries it was built from; a shared one holds the wire classes.
set(_targets ${QLM_INSTALLED_LIBRARY} qlm_platform)
if(NOT BUILD_SHARED_LIBS)
  list(APPEND _targets qlm_wire)
endif()
install(TARGETS ${_targets} EXPORT QuillmereTargets)

set(_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Quillmere)
install(EXPORT QuillmereTargets NAMESPACE Quillmere:: DESTINATION ${_cmake_dir})
if(BUILD_SHARED_LIBS)
  set(QLM_SHARED ON)
else()
  set(QLM_SHARED OFF)
endif()
configure_package_config_file(cmake/QuillmereConfig.cmake.in
  ${PROJECT_BINARY_DIR}/QuillmereConfig.cmake INSTALL_DESTINATION ${_cmake_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/QuillmereConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/QuillmereConfig.cmake ${PROJECT_BINARY_DIR}/QuillmereConfigVersion.cmake
  DESTINATION ${_cmake_dir})

# pkg-config: the prefix is found from the file's own place, so the tree may be installed anywhere.
file(RELATIVE_PATH QLM_PC_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" QLM_PC_PREFIX ${QLM_PC_PREFIX})
if(BUILD_SHARED_LIBS)
  set(QLM_PC_LIBS "-lquillmere -lqlm_platform -pthread")
  set(QLM_PC_REQUIRES "")
else()
  set(QLM_PC_LIBS "-lquillmere -lqlm_wire -lqlm_platform -pthread")
  set(QLM_PC_REQUIRES "libcurl uuid cairo libutf8proc protobuf")
endif()
configure_file(cmake/quillmere.pc.in ${PROJECT_BINARY_DIR}/quillmere.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/quillmere.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
