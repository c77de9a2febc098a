# SPDX-License-Identifier: Apache-2.0
# What is installed, and where; of Python and the manual, see python/ and docs/. packaging/debian sorts the same files into
# packages.
include(CMakePackageConfigHelpers)
set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/vorn_nac)
set(NAC_INSTALL_WIRESHARKDIR ${CMAKE_INSTALL_LIBDIR}/wireshark/plugins CACHE PATH "Where Wireshark looks for plugins")

# A pkg-config file finds the others from where it is, so that the whole prefix can be moved.
file(RELATIVE_PATH to_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" to_prefix ${to_prefix})
function(install_pkg_config name)
  configure_file(${PROJECT_SOURCE_DIR}/packaging/pkgconfig/${name}.pc.in ${PROJECT_BINARY_DIR}/pkgconfig/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/pkgconfig/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endfunction()

function(install_header path)
  get_filename_component(folder ${path} DIRECTORY)
  install(FILES ${PROJECT_SOURCE_DIR}/${path} DESTINATION ${NAC_INSTALL_INCLUDEDIR}/${folder})
endfunction()

# The library.
install(TARGETS vorn_nac_user vorn_nac_user_static vorn_stub_bus vorn_kit EXPORT vorn_nac-library)
install(EXPORT vorn_nac-library NAMESPACE vorn_nac:: DESTINATION ${package_folder})
set(KIT_SOURCES ${NAC_INSTALL_DATADIR}/kit)
configure_package_config_file(${PROJECT_SOURCE_DIR}/packaging/vorn_nac-config.cmake.in
  ${PROJECT_BINARY_DIR}/vorn_nac-config.cmake INSTALL_DESTINATION ${package_folder} PATH_VARS KIT_SOURCES)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vorn_nac-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vorn_nac-config.cmake ${PROJECT_BINARY_DIR}/vorn_nac-config-version.cmake
  DESTINATION ${package_folder})
install_header(nac/nac_messages.h)
foreach(header IN ITEMS message_functions nac owned_records typed_bus)
  install_header(nac/${header}.hpp)
endforeach()

# What a package of messages is made of: the library's own headers, and the function that makes one.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/runtime ${PROJECT_SOURCE_DIR}/bus DESTINATION ${NAC_INSTALL_INCLUDEDIR}
  FILES_MATCHING PATTERN *.h PATTERN *.hpp)
function(install_source)
  foreach(path IN LISTS ARGN)
    get_filename_component(folder ${path} DIRECTORY)
    install(FILES ${PROJECT_SOURCE_DIR}/${path} DESTINATION ${NAC_INSTALL_DATADIR}/kit/${folder})
  endforeach()
endfunction()
install_source(runtime/kaplo_runtime.cpp)
foreach(driver IN ITEMS random_records decode_fuzz round_trip_fuzz damage_fuzz batch_fuzz replay_main)
  install_source(fuzz/${driver}.cpp)
endforeach()
install_source(fuzz/checked_unit.h fuzz/damaged.h fuzz/supply.h)
foreach(header IN ITEMS bytes give_up guarded_buffer plain_reader plain_writer random_record same_record)
  install_source(tests/support/${header}.h)
endforeach()
install(FILES ${PROJECT_SOURCE_DIR}/cmake/vorn_add_package.cmake DESTINATION ${package_folder})
install_pkg_config(vorn_nac)
install_pkg_config(vorn_nac_static)
install_pkg_config(vorn_stub_bus)

# What a message is, as data.
if(NAC_BUILD_INSPECT)
  set_target_properties(vorn_nac_inspect PROPERTIES INSTALL_RPATH "$ORIGIN")  # to libvorn_nac_user
  install(TARGETS vorn_nac_inspect vorn_nac_inspect_static EXPORT vorn_nac-inspect)
  install(EXPORT vorn_nac-inspect NAMESPACE vorn_nac:: DESTINATION ${package_folder})
  install_header(inspect/vorn_inspect.h)
  foreach(header IN ITEMS bounded_text checked_record description_tables package_catalogue type_operations)
    install_header(inspect/${header}.h)
  endforeach()
  install_source(inspect/type_operations.cpp)
  install_pkg_config(vorn_nac_inspect)
  install_pkg_config(vorn_nac_inspect_static)
endif()

# The bus, and what a host links.
if(NAC_BUILD_BUS)
  install(TARGETS vorn_bus vorn_host vorn_host_static EXPORT vorn_nac-bus)
  install(EXPORT vorn_nac-bus NAMESPACE vorn_nac:: DESTINATION ${package_folder})
  install_header(vorn/vorn_bus.h)
  install(FILES ${PROJECT_SOURCE_DIR}/vorn/host_services.list DESTINATION ${NAC_INSTALL_DATADIR})
  install_pkg_config(vorn_bus)
  install_pkg_config(vorn_host)
  install_pkg_config(vorn_host_static)
endif()

# The tool, and what is generated from it.
if(NAC_BUILD_TOOL)
  file(RELATIVE_PATH to_libraries ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set_target_properties(nac PROPERTIES INSTALL_RPATH "$ORIGIN/${to_libraries}")
  install(TARGETS nac)
  install(FILES ${NAC_GENERATED}/nac.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME nac)
  install(FILES ${NAC_GENERATED}/_nac DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
  install(FILES ${NAC_GENERATED}/nac.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
  install(FILES ${NAC_GENERATED}/vorn_nac.lua DESTINATION ${NAC_INSTALL_WIRESHARKDIR})
endif()

# For implementers of the format in other languages.
install(PROGRAMS ${PROJECT_SOURCE_DIR}/tests/reference/conformance.py DESTINATION ${NAC_INSTALL_DATADIR}/conformance)
install(FILES ${PROJECT_SOURCE_DIR}/tests/reference/descriptions.jsonl DESTINATION ${NAC_INSTALL_DATADIR}/conformance)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/tests/reference/corpus DESTINATION ${NAC_INSTALL_DATADIR}/conformance)
