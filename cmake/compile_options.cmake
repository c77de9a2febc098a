# SPDX-License-Identifier: Apache-2.0
# What every target here is compiled with.

add_library(nac_compile_options INTERFACE)
target_include_directories(nac_compile_options INTERFACE $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>)

target_compile_options(nac_compile_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wcast-align -Wcast-qual -Wformat=2
  -Wundef -Wvla -Wdouble-promotion -Wimplicit-fallthrough
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual -Wold-style-cast -Wextra-semi>
  $<$<COMPILE_LANGUAGE:C>:-Wstrict-prototypes -Wmissing-prototypes>
  $<$<BOOL:${NAC_WARNINGS_AS_ERRORS}>:-Werror>)

if(NAC_SANITIZERS)
  target_compile_options(nac_compile_options INTERFACE
    -fsanitize=${NAC_SANITIZERS} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(nac_compile_options INTERFACE -fsanitize=${NAC_SANITIZERS})
endif()

# What compiles the library's own code, in the library or in a test. Counted without exceptions, of which it has none:
# where there are, every call is a branch.
add_library(nac_counted_options INTERFACE)
if(NAC_COVERAGE)
  target_compile_definitions(nac_counted_options INTERFACE KAPLO_COUNTED)
  target_compile_options(nac_counted_options INTERFACE --coverage -fprofile-update=atomic
    $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions>)
  target_link_options(nac_counted_options INTERFACE --coverage)
endif()

# The library's own sources: no exceptions, no RTTI, no C++ runtime.
add_library(nac_library_options INTERFACE)
target_link_libraries(nac_library_options INTERFACE nac_compile_options nac_counted_options)
target_compile_options(nac_library_options INTERFACE
  $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics>
  -Wnull-dereference -fvisibility=hidden -fstack-protector-strong
  -ffile-prefix-map=${PROJECT_SOURCE_DIR}=. -ffile-prefix-map=${PROJECT_BINARY_DIR}=build  # the same bytes in any folder
  $<$<CXX_COMPILER_ID:GNU>:-fcallgraph-info=su>)  # writes the use of stack beside each object
if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
  target_compile_options(nac_library_options INTERFACE -fcf-protection=full)
  # Debian's start files have no landing pads, so that indirect branch tracking cannot be declared for the whole file.
  target_link_options(nac_library_options INTERFACE -Wl,-z,shstk)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "aarch64|arm64")
  target_compile_options(nac_library_options INTERFACE -mbranch-protection=standard)
endif()
if(NAC_BYTE_SWAP)
  # Everywhere, since tests instantiate units of their own.
  target_compile_definitions(nac_compile_options INTERFACE KAPLO_BYTE_SWAP=1)
endif()
if(NAC_PLATFORM_MEM_S)
  target_compile_definitions(nac_library_options INTERFACE KAPLO_PLATFORM_MEM_S)
endif()
