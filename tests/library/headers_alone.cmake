# SPDX-License-Identifier: Apache-2.0
# Every header compiles alone, and twice in one source: C++ headers as C++, C headers as C too.
#
# The sources are made here, one for each header and language.
set(c_headers bus/message_functions.h bus/vorn_bus_api.h nac/nac_messages.h runtime/zeb_osal_api.h)
file(GLOB headers RELATIVE ${PROJECT_SOURCE_DIR} CONFIGURE_DEPENDS
  ${PROJECT_SOURCE_DIR}/bus/*.h
  ${PROJECT_SOURCE_DIR}/nac/*.h ${PROJECT_SOURCE_DIR}/runtime/*.h)
if(NAC_BUILD_INSPECT)
  file(GLOB inspect_headers RELATIVE ${PROJECT_SOURCE_DIR} CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/inspect/*.h)
  list(APPEND headers ${inspect_headers})
  list(APPEND c_headers inspect/vorn_inspect.h)
endif()
if(NAC_BUILD_BUS)
  file(GLOB bus_headers RELATIVE ${PROJECT_SOURCE_DIR} CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/vorn/*.h ${PROJECT_SOURCE_DIR}/vorn/*/*.h)
  list(APPEND headers ${bus_headers})
  list(APPEND c_headers vorn/vorn_bus.h)
endif()

if(NAC_BUILD_INSPECT AND NAC_BUILD_BUS)
  file(GLOB cpp_headers RELATIVE ${PROJECT_SOURCE_DIR} CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/nac/*.hpp)
  list(APPEND headers ${cpp_headers})
endif()

add_library(headers_alone OBJECT)
target_link_libraries(headers_alone PRIVATE nac_compile_options)
function(compile_alone header suffix)
  string(REPLACE "/" "_" name ${header})
  set(source ${CMAKE_CURRENT_BINARY_DIR}/headers_alone/${name}.${suffix})
  # An own declaration, because C allows no source without one.
  file(CONFIGURE OUTPUT ${source} CONTENT "#include \"${header}\"\n#include \"${header}\"\nextern int declared;\n")
  target_sources(headers_alone PRIVATE ${source})
endfunction()
foreach(header IN LISTS headers)
  compile_alone(${header} cpp)
endforeach()
foreach(header IN LISTS c_headers)
  compile_alone(${header} c)
endforeach()
