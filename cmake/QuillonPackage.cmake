# Install layout, CMake package and distributable ZIP of the SDK.
#
#   bin/                    QuillonSDK.dll, Velmor.dll, ffmpeg-7.dll,
#                           QuillonPlay.exe, QuillonWall.exe, QuillonSelfCheck.exe
#   include/                QuillonSDK.h
#   lib/                    libQuillonSDK.dll.a (MinGW), QuillonSDK.lib (MSVC)
#   lib/cmake/QuillonSDK/   QuillonSDKConfig.cmake (target Quillon::SDK)
#   share/doc/QuillonSDK/   documentation, licence and third-party notices
include(CMakePackageConfigHelpers)
set(QUILLON_DOC_DIR share/doc/QuillonSDK)
set(QUILLON_CMAKE_DIR lib/cmake/QuillonSDK)

install(TARGETS QuillonSDK Velmor QuillonPlay QuillonWall QuillonSelfCheck
  RUNTIME DESTINATION bin
  ARCHIVE DESTINATION lib)
install(FILES ${CMAKE_BINARY_DIR}/bin/ffmpeg-7.dll DESTINATION bin)
install(FILES ${CMAKE_SOURCE_DIR}/include/QuillonSDK.h DESTINATION include)
install(FILES ${CMAKE_BINARY_DIR}/lib/QuillonSDK.lib DESTINATION lib)

configure_package_config_file(${CMAKE_SOURCE_DIR}/cmake/QuillonSDKConfig.cmake.in
  ${CMAKE_BINARY_DIR}/package/QuillonSDKConfig.cmake
  INSTALL_DESTINATION ${QUILLON_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/package/QuillonSDKConfigVersion.cmake
  COMPATIBILITY SameMajorVersion ARCH_INDEPENDENT)
install(FILES ${CMAKE_BINARY_DIR}/package/QuillonSDKConfig.cmake
              ${CMAKE_BINARY_DIR}/package/QuillonSDKConfigVersion.cmake
        DESTINATION ${QUILLON_CMAKE_DIR})

install(FILES ${CMAKE_SOURCE_DIR}/README.md ${CMAKE_SOURCE_DIR}/LICENSE.txt ${CMAKE_SOURCE_DIR}/NOTICE.txt
        DESTINATION ${QUILLON_DOC_DIR})
install(DIRECTORY ${CMAKE_SOURCE_DIR}/docs/ DESTINATION ${QUILLON_DOC_DIR} FILES_MATCHING PATTERN "*.md")
# FFmpeg is LGPL: its licence text and how this module was built travel with it.
install(FILES ${QUILLON_FFMPEG_DIR}/COPYING.LGPLv2.1 ${QUILLON_FFMPEG_DIR}/BUILDINFO
        DESTINATION ${QUILLON_DOC_DIR}/ffmpeg)

set(CPACK_GENERATOR ZIP)
set(CPACK_PACKAGE_NAME QuillonSDK)
set(CPACK_PACKAGE_VENDOR Quillon)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "GPU decoding of H.264/H.265 and Direct3D 11 display for Windows hosts")
set(CPACK_PACKAGE_FILE_NAME QuillonSDK-${PROJECT_VERSION}-win64)
set(CPACK_RESOURCE_FILE_LICENSE ${CMAKE_SOURCE_DIR}/LICENSE.txt)
set(CPACK_INCLUDE_TOPLEVEL_DIRECTORY ON)
include(CPack)
