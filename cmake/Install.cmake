# What an installed desk consists of: cmake --install puts it below the prefix, cpack into a .deb.
include(GNUInstallDirs)

set(private_libraries lib/ox-modem)  # names like libutils.so are not for everybody's search path
set(programs modemctl ox-modem-host)
set(libraries cutils framework hidlbase modemapi_vendor utils vendor.lyr.modem_1.0)

# The plug-in once more, for which the list of configurations lies where the prefix says.
set(list_folder ${CMAKE_INSTALL_FULL_SYSCONFDIR}/ox-modem)
ox_plugin(ox-modem-installed plugin/clients/MbnListFile.cpp
    "$<FILTER:$<TARGET_OBJECTS:ox-modem-objects>,EXCLUDE,MbnListFile>")
target_compile_definitions(ox-modem-installed PRIVATE OX_MBN_LIST_FILE="${list_folder}/oem_sw.txt")
target_include_directories(ox-modem-installed PRIVATE ${CMAKE_SOURCE_DIR}/plugin)
set_target_properties(ox-modem-installed PROPERTIES OUTPUT_NAME ox-modem
    LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/installed)

find_program(HELP2MAN help2man REQUIRED)
set(documents ${CMAKE_BINARY_DIR}/installed/completion ${CMAKE_BINARY_DIR}/installed/modemctl.1)
set(manual_head ${CMAKE_SOURCE_DIR}/desk/modemctl/modemctl.h2m)
add_custom_command(
    OUTPUT ${documents}
    COMMAND modemctl completion bash > ${CMAKE_BINARY_DIR}/installed/completion
    COMMAND ${HELP2MAN} --no-info --help-option=--help-all --name "client of the modem service"
            --include ${manual_head} --output ${CMAKE_BINARY_DIR}/installed/modemctl.1
            $<TARGET_FILE:modemctl>
    DEPENDS modemctl ${manual_head}
    VERBATIM)
add_custom_target(documents ALL DEPENDS ${documents})

set_target_properties(${programs} PROPERTIES INSTALL_RPATH "$ORIGIN/../${private_libraries}")
set_target_properties(recorder replay PROPERTIES INSTALL_RPATH "$ORIGIN/..")
set_target_properties(${libraries} ox-modem-installed PROPERTIES INSTALL_RPATH "$ORIGIN")

# The plug-in has a path in it, so another prefix cannot be chosen as late as this.
install(CODE "
    if(NOT CMAKE_INSTALL_PREFIX STREQUAL [[${CMAKE_INSTALL_PREFIX}]])
        message(FATAL_ERROR \"This build is for ${CMAKE_INSTALL_PREFIX}: the plug-in in it looks \"
                \"for ${list_folder}/oem_sw.txt. For another prefix, configure with \"
                \"-D CMAKE_INSTALL_PREFIX=\${CMAKE_INSTALL_PREFIX}\")
    endif()")
install(TARGETS ${programs} RUNTIME)
install(TARGETS ${libraries} ox-modem-installed LIBRARY DESTINATION ${private_libraries})
install(TARGETS recorder LIBRARY DESTINATION ${private_libraries}/recorder)
install(TARGETS replay LIBRARY DESTINATION ${private_libraries}/replay)
install(FILES desk/libmodemapi_vendor/device/data/vendor/modem_config/mcfg_sw/oem_sw.txt
        DESTINATION ${list_folder})
install(FILES ${CMAKE_BINARY_DIR}/installed/completion RENAME modemctl
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(FILES ${CMAKE_BINARY_DIR}/installed/modemctl.1
        DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(PROGRAMS desk/ox-modem-log DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES desk/ox_modem_table.py DESTINATION ${CMAKE_INSTALL_BINDIR})  # beside its reader
install(FILES desk/ox_modem.py DESTINATION lib/python3/dist-packages)
install(FILES CHANGELOG.md README.md TYPE DOC)
install(DIRECTORY docs TYPE DOC)
install(DIRECTORY interfaces/vendor DESTINATION ${CMAKE_INSTALL_DATADIR}/ox-modem
        FILES_MATCHING PATTERN *.hal)
foreach(library libcutils lib-framework libhidlbase libmodemapi_vendor libutils)
    list(APPEND header_folders desk/${library}/include/)
endforeach()
install(DIRECTORY ${header_folders} ${CMAKE_BINARY_DIR}/interfaces/
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ox-modem FILES_MATCHING PATTERN *.h
        PATTERN CMakeFiles EXCLUDE)

set(CPACK_GENERATOR DEB)
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Modem service plug-in with a desk to run it on")
set(CPACK_PACKAGE_CONTACT "The ox-modem maintainers")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_DEPENDS python3)  # of the log reader
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${CMAKE_BINARY_DIR}/installed/conffiles)
file(WRITE ${CMAKE_BINARY_DIR}/installed/conffiles "${list_folder}/oem_sw.txt\n")
include(CPack)
