# SPDX-License-Identifier: Apache-2.0
# GoogleTest: the installed library, or, for another machine, one built from the sources in NAC_GOOGLETEST.
if(CMAKE_CROSSCOMPILING)
  set(NAC_GOOGLETEST /usr/src/googletest CACHE PATH "Sources of GoogleTest")
  set(BUILD_GMOCK OFF CACHE BOOL "Build GoogleMock")
  set(INSTALL_GTEST OFF CACHE BOOL "Install GoogleTest")
  add_subdirectory(${NAC_GOOGLETEST} googletest EXCLUDE_FROM_ALL)
  target_compile_options(gtest PRIVATE -w)  # its warnings are not ours
  target_compile_options(gtest_main PRIVATE -w)
else()
  find_package(GTest REQUIRED)
endif()
