# SPDX-License-Identifier: Apache-2.0
# A package of messages, from one header with its records and one with their descriptions.
#
#   vorn_add_package(Lease RECORDS lease.h DESCRIPTIONS lease_descriptions.h)
#
# makes vorn_lease and vorn_lease_static, the library: seven functions a message, three a module, from a receive and a
# send unit for each module; and vorn_lease_catalogue, libvorn_lease_catalogue.so, which nac --catalogue and
# vorn_nac.load(...) read. `Lease` is how the names of all records begin, from which message ids are derived. Both headers
# are in the current source folder; that of records lists modules and messages as LEASE_ALL_MODULES and
# LEASE_ALL_MESSAGES.
#
# LIBRARY gives the library another name; NO_CATALOGUE leaves the catalogue out.
#
#   vorn_add_drivers(vorn_lease)
#
# makes a test of each promise that holds for the messages of any package: vorn_lease_random_records compares random records
# with a second writer and reader of the format; vorn_lease_decode_fuzz and others try random inputs, and are libFuzzer's
# where VORN_FUZZING is on (clang). They need GoogleTest.

# Of the kit's folders, as the tree or the installation has them: VORN_KIT_SOURCES has runtime/ and inspect/.
function(vorn_add_kit_runtime)
  if(NOT TARGET kaplo_runtime)
    add_library(kaplo_runtime OBJECT ${VORN_KIT_SOURCES}/runtime/kaplo_runtime.cpp)
    vorn_compile_as_kit(kaplo_runtime)
  endif()
endfunction()

# What keeps a library independent of any C++ runtime, and its names to itself.
function(vorn_compile_as_kit target)
  target_link_libraries(${target} PRIVATE vorn_nac::kit)
  target_compile_options(${target} PRIVATE -fno-exceptions -fno-rtti -fno-threadsafe-statics -fvisibility=hidden)
  set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON)
endfunction()

function(vorn_add_package package)
  cmake_parse_arguments(PARSE_ARGV 1 PACKAGE "NO_CATALOGUE" "RECORDS;DESCRIPTIONS;LIBRARY" "")
  if(NOT package MATCHES "^[A-Z][A-Za-z0-9]*$")
    message(FATAL_ERROR "vorn_add_package: ${package} is no name of a package: a capital letter, then letters and digits, "
      "as the names of its records begin, for example Lease for Lease_Grant")
  endif()
  foreach(given IN ITEMS RECORDS DESCRIPTIONS)
    if(NOT PACKAGE_${given})
      message(FATAL_ERROR "vorn_add_package(${package}): ${given} HEADER is missing")
    endif()
    if(NOT EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${PACKAGE_${given}})
      message(FATAL_ERROR "vorn_add_package(${package}): there is no ${CMAKE_CURRENT_SOURCE_DIR}/${PACKAGE_${given}}")
    endif()
  endforeach()
  if(PACKAGE_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "vorn_add_package(${package}): ${PACKAGE_UNPARSED_ARGUMENTS} is not understood; there are RECORDS, "
      "DESCRIPTIONS, LIBRARY and NO_CATALOGUE")
  endif()
  string(TOLOWER ${package} name)
  string(TOUPPER ${package} NAME)
  if(PACKAGE_LIBRARY)
    set(library ${PACKAGE_LIBRARY})
  else()
    set(library vorn_${name})
  endif()
  set(made ${CMAKE_CURRENT_BINARY_DIR}/${library})

  # Two sources of a few lines for each row of LEASE_ALL_MODULES.
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PACKAGE_RECORDS})
  file(READ ${PACKAGE_RECORDS} header)
  string(REGEX MATCHALL "MODULE\\([a-z0-9_]+, *[a-z0-9_]+, *${NAME}_[A-Z0-9_]+\\)" rows "${header}")
  list(LENGTH rows count)
  if(count EQUAL 0)
    message(FATAL_ERROR "vorn_add_package(${package}): ${PACKAGE_RECORDS} lists no module: its macro ${NAME}_ALL_MODULES(MODULE) "
      "has a row for each, as MODULE(pool, ${name}_pool, ${NAME}_POOL_MESSAGES): name, prefix of its functions, messages")
  endif()
  set(priority 201)  # 0 to 100 are the compiler's
  set(units "")
  set(sides receive send)
  set(suffixes recv send)
  foreach(row IN LISTS rows)
    string(REGEX MATCH "\\(([a-z0-9_]+), *([a-z0-9_]+), *([A-Z0-9_]+)" _ ${row})
    set(module ${CMAKE_MATCH_1})
    set(prefix ${CMAKE_MATCH_2})
    set(messages ${CMAKE_MATCH_3})
    foreach(side suffix IN ZIP_LISTS sides suffixes)
      string(TOUPPER ${side} SIDE)
      file(CONFIGURE OUTPUT ${made}/${module}_${suffix}.cpp @ONLY CONTENT [[
// Made by vorn_add_package of @PACKAGE_RECORDS@.
#include "@PACKAGE_DESCRIPTIONS@"
#include "bus/@side@_unit.h"

VORN_@SIDE@_UNIT(@prefix@, @messages@, @priority@)

#define VORN_COUNT(module, prefix, MESSAGES) +1
static_assert(@NAME@_ALL_MODULES(VORN_COUNT) == @count@,
              "a row of @NAME@_ALL_MODULES cannot be read: MODULE(name, prefix, @NAME@_NAME_MESSAGES)");
]])
      list(APPEND units ${made}/${module}_${suffix}.cpp)
      math(EXPR priority "${priority} + 1")
    endforeach()
  endforeach()
  add_library(${library}_objects OBJECT ${units})
  vorn_compile_as_kit(${library}_objects)
  target_include_directories(${library}_objects PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
  vorn_add_kit_runtime()
  set(objects $<TARGET_OBJECTS:${library}_objects> $<TARGET_OBJECTS:kaplo_runtime>)

  # Linked as C and as needed, so that no C++ runtime library becomes a dependency. The VORN functions stay undefined: the
  # process brings its bus.
  file(CONFIGURE OUTPUT ${made}/${library}.map @ONLY CONTENT [[
/* Made by vorn_add_package. The interface of the library: seven functions a message type, three a module. */
{
  global:
    @package@_*__pack;
    @package@_*__unpack;
    @package@_*_free__unpacked;
    @package@_*__sendsingle;
    @package@_*__sendbatch;
    @package@_*__sendmsg;
    @package@_*__sendtomsg;
    @name@_*_recv_init;
    @name@_*_send_init;
    @name@_*__send_resource_clean;
  local:
    *;
};
]])
  add_library(${library} SHARED ${objects})
  set_target_properties(${library} PROPERTIES LINKER_LANGUAGE C LINK_DEPENDS ${made}/${library}.map)
  target_link_options(${library} PRIVATE
    -Wl,--as-needed -Wl,--version-script=${made}/${library}.map -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)

  # The same objects for a program that brings the codec along. It still looks its host's services up by name, so that the
  # program is linked dynamically with libc.
  add_library(${library}_static STATIC ${objects})
  set_target_properties(${library}_static PROPERTIES OUTPUT_NAME ${library} LINKER_LANGUAGE C)
  target_link_libraries(${library}_static INTERFACE ${CMAKE_DL_LIBS})
  foreach(target IN ITEMS ${library} ${library}_static)
    # Not the kit itself, which asks for C++20: the headers are C.
    target_include_directories(${target} INTERFACE $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}>
      $<TARGET_PROPERTY:vorn_nac::kit,INTERFACE_INCLUDE_DIRECTORIES>)
  endforeach()

  set_target_properties(${library} PROPERTIES VORN_DESCRIPTIONS ${PACKAGE_DESCRIPTIONS} VORN_MESSAGES ${NAME}_ALL_MESSAGES)

  if(PACKAGE_NO_CATALOGUE)
    return()
  endif()
  if(NOT TARGET vorn_nac::inspect)
    message(FATAL_ERROR "vorn_add_package(${package}): a catalogue needs libvorn_nac_inspect: find_package(vorn_nac REQUIRED "
      "COMPONENTS inspect), or NO_CATALOGUE")
  endif()
  file(CONFIGURE OUTPUT ${made}/${name}_catalogue.cpp @ONLY CONTENT [[
// Made by vorn_add_package of @PACKAGE_RECORDS@.
#include "@PACKAGE_DESCRIPTIONS@"
#include "inspect/package_catalogue.h"

VORN_LOADED_CATALOGUE(@package@, @name@, @NAME@_ALL_MODULES)
]])
  add_library(${library}_catalogue SHARED ${made}/${name}_catalogue.cpp ${VORN_KIT_SOURCES}/inspect/type_operations.cpp
    $<TARGET_OBJECTS:kaplo_runtime>)
  vorn_compile_as_kit(${library}_catalogue)
  target_link_libraries(${library}_catalogue PUBLIC ${library} vorn_nac::inspect)
endfunction()

function(vorn_add_drivers library)
  find_package(GTest REQUIRED)
  get_target_property(folder ${library} SOURCE_DIR)
  get_target_property(descriptions ${library} VORN_DESCRIPTIONS)
  get_target_property(messages ${library} VORN_MESSAGES)
  foreach(driver IN ITEMS random_records decode_fuzz round_trip_fuzz damage_fuzz batch_fuzz)
    set(target ${library}_${driver})
    add_executable(${target} ${VORN_KIT_SOURCES}/fuzz/${driver}.cpp $<TARGET_OBJECTS:kaplo_runtime>)
    target_link_libraries(${target} PRIVATE vorn_nac::kit GTest::gtest)
    target_include_directories(${target} PRIVATE ${folder} ${VORN_KIT_SOURCES})
    target_compile_definitions(${target} PRIVATE FUZZ_DESCRIPTIONS="${descriptions}" FUZZ_MESSAGES=${messages})
    if(NOT driver MATCHES "_fuzz$")
      add_test(NAME ${target} COMMAND ${target} 1000)
    elseif(VORN_FUZZING)
      target_compile_options(${target} PRIVATE -fsanitize=fuzzer,address,undefined)
      target_link_options(${target} PRIVATE -fsanitize=fuzzer,address,undefined)
    else()
      target_sources(${target} PRIVATE ${VORN_KIT_SOURCES}/fuzz/replay_main.cpp)
      add_test(NAME ${target} COMMAND ${target} --random 20000)
    endif()
  endforeach()
endfunction()
