include(CMakePackageConfigHelpers)

install(TARGETS murmurase murmurase-xmp RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

# For a host's developer: murmurase::murmurase brings the header and what loading a module needs;
# murmurase::algorithm is the module itself, for its $<TARGET_FILE>.
add_library(murmurase_interface INTERFACE)
target_include_directories(murmurase_interface INTERFACE
                           $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
                           $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_link_libraries(murmurase_interface INTERFACE ${CMAKE_DL_LIBS})
set_target_properties(murmurase_interface PROPERTIES EXPORT_NAME murmurase)
set_target_properties(murmurase_algorithm PROPERTIES EXPORT_NAME algorithm)
# No linker looks for the module, so it lies apart from the libraries.
install(TARGETS murmurase_interface murmurase_algorithm EXPORT murmurase
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/murmurase)
install(FILES ${PROJECT_SOURCE_DIR}/include/murmurase/murmurase.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/murmurase)

# The exported targets are all that the package is.
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/murmurase)
install(EXPORT murmurase FILE murmuraseConfig.cmake NAMESPACE murmurase:: DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/murmuraseConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/murmuraseConfigVersion.cmake DESTINATION ${package_dir})

# Told from where the file itself lies, so that an installed tree may be moved.
file(RELATIVE_PATH prefix_from_pc /${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig /${CMAKE_INSTALL_PREFIX})
file(RELATIVE_PATH include_from_prefix /${CMAKE_INSTALL_PREFIX} /${CMAKE_INSTALL_FULL_INCLUDEDIR})
file(RELATIVE_PATH lib_from_prefix /${CMAKE_INSTALL_PREFIX} /${CMAKE_INSTALL_FULL_LIBDIR})
configure_file(${PROJECT_SOURCE_DIR}/cmake/murmurase.pc.in murmurase.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/murmurase.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/man/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
        FILES_MATCHING PATTERN *.1)
