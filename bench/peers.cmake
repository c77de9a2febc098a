# SPDX-License-Identifier: Apache-2.0
# The peers: schemas and mappings generated from the descriptions, compiled by the peers' own compilers.
find_package(benchmark REQUIRED)
find_package(GTest REQUIRED)
find_package(nlohmann_json REQUIRED)
find_package(Protobuf REQUIRED)
find_package(nanopb REQUIRED)
find_package(CapnProto REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(PROTOBUF_C REQUIRED IMPORTED_TARGET libprotobuf-c)
find_path(MSGPACK_INCLUDE msgpack.hpp REQUIRED)
find_program(CAPNP capnp REQUIRED)
find_program(PROTOC_C protoc-c REQUIRED)
find_program(NANOPB_GENERATOR nanopb_generator.py REQUIRED)

set(generated ${CMAKE_CURRENT_BINARY_DIR}/generated)
file(MAKE_DIRECTORY ${generated})

nac_add_bench_program(described_records described_records.cpp)
target_link_libraries(described_records PRIVATE nlohmann_json::nlohmann_json)

add_custom_command(
  OUTPUT ${generated}/peer_protobuf.proto ${generated}/peer_protobuf_c.proto ${generated}/peer_nanopb.proto
    ${generated}/peer_nanopb.options ${generated}/peer_capnp.capnp ${generated}/protobuf_mapping.h
    ${generated}/protobuf_c_mapping.h ${generated}/nanopb_mapping.h ${generated}/capnp_mapping.h
    ${generated}/sbe_mapping.h
  COMMAND described_records > ${generated}/records.json
  COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/generate.py ${generated}/records.json ${generated}
  DEPENDS described_records generate.py
  VERBATIM)
add_custom_command(
  OUTPUT ${generated}/peer_protobuf.pb.cc ${generated}/peer_protobuf.pb.h
  COMMAND protobuf::protoc -I . --cpp_out=. peer_protobuf.proto
  DEPENDS ${generated}/peer_protobuf.proto
  WORKING_DIRECTORY ${generated} VERBATIM)
add_custom_command(
  OUTPUT ${generated}/peer_protobuf_c.pb-c.c ${generated}/peer_protobuf_c.pb-c.h
  COMMAND ${PROTOC_C} -I . --c_out=. peer_protobuf_c.proto
  DEPENDS ${generated}/peer_protobuf_c.proto
  WORKING_DIRECTORY ${generated} VERBATIM)
add_custom_command(
  OUTPUT ${generated}/peer_nanopb.pb.c ${generated}/peer_nanopb.pb.h
  COMMAND ${NANOPB_GENERATOR} --quiet --library-include-format=\#include\ <%s> peer_nanopb.proto
  DEPENDS ${generated}/peer_nanopb.proto ${generated}/peer_nanopb.options
  WORKING_DIRECTORY ${generated} VERBATIM)
add_custom_command(
  OUTPUT ${generated}/peer_capnp.capnp.c++ ${generated}/peer_capnp.capnp.h
  COMMAND ${CAPNP} compile -I /usr/include -oc++ peer_capnp.capnp
  DEPENDS ${generated}/peer_capnp.capnp
  WORKING_DIRECTORY ${generated} VERBATIM)

# As their compilers write it, warnings and all.
add_library(bench_peer_schemas OBJECT
  ${generated}/peer_protobuf.pb.cc ${generated}/peer_protobuf_c.pb-c.c ${generated}/peer_nanopb.pb.c
  ${generated}/peer_capnp.capnp.c++
  ${generated}/protobuf_mapping.h ${generated}/protobuf_c_mapping.h ${generated}/nanopb_mapping.h
  ${generated}/capnp_mapping.h)
target_include_directories(bench_peer_schemas SYSTEM PUBLIC ${generated} ${MSGPACK_INCLUDE})
target_compile_definitions(bench_peer_schemas PUBLIC MSGPACK_NO_BOOST)
target_link_libraries(bench_peer_schemas PUBLIC
  protobuf::libprotobuf PkgConfig::PROTOBUF_C nanopb::protobuf-nanopb-static CapnProto::capnp)

add_library(heap_counter MODULE heap_counter.cpp)
target_link_libraries(heap_counter PRIVATE nac_compile_options)
set_target_properties(heap_counter PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR})

nac_add_bench_program(compare compare.cpp library_codec.cpp
  peer_protobuf.cpp peer_protobuf_c.cpp peer_nanopb.cpp peer_capnp.cpp peer_msgpack.cpp)
target_link_libraries(compare PRIVATE
  bench_peer_schemas benchmark::benchmark GTest::gtest nlohmann_json::nlohmann_json ${CMAKE_DL_LIBS})

# Peers that Debian has no package of take part where their headers are: an option names the folder, or the environment.
foreach(peer IN ITEMS zpp_bits sbe)
  string(TOUPPER NAC_BENCH_${peer} folder)
  set(${folder} "$ENV{${folder}}" CACHE PATH "Folder of the headers of ${peer}, for the benchmarks")
  if(${folder})
    target_sources(compare PRIVATE peer_${peer}.cpp)
    target_include_directories(compare SYSTEM PRIVATE ${${folder}})
    string(TOUPPER BENCH_${peer} definition)
    target_compile_definitions(compare PRIVATE ${definition})
  else()
    message(STATUS "left out: ${peer} in the benchmarks, since -D${folder}=DIR does not name its headers")
  endif()
endforeach()
