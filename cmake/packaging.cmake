# Installation extras and the Debian packages, included by the top-level CMakeLists after every target.
#
# Install components, one Debian package each (`cpack -G DEB` in the build folder, or `./dev.sh package`):
#   lib      libhalqvantor<soversion>  the shared library
#   dev      libhalqvantor-dev         headers, static library, CMake package, pkg-config file, SQL schemas
#   tools    vantor                    the vantor program, its man page and bash completion
#   gateway  vantor-gateway            the reference gateway, its man page and the sample archive
# The Python module installs as component "python" and is not packaged here.

set(HALQVANTOR_PACKAGE_MAINTAINER "HalqVantor developers <halqvantor@example.org>"
    CACHE STRING "Maintainer named in the Debian packages and their changelog")
set(HALQVANTOR_PACKAGE_RELEASE 1 CACHE STRING "Debian revision of the packages (the part after the hyphen)")
set(HALQVANTOR_LIB_PACKAGE libhalqvantor${PROJECT_VERSION_MAJOR})  # named after the soname, libhalqvantor.so.N
set(HALQVANTOR_DEB_VERSION ${PROJECT_VERSION}-${HALQVANTOR_PACKAGE_RELEASE})
set(packaging_dir ${PROJECT_SOURCE_DIR}/packaging)
set(packaging_out ${PROJECT_BINARY_DIR}/packaging)

# ---- pkg-config

# The prefix is the one the files are installed under, known only at install time: cpack installs under
# /usr, a developer's `cmake --install` under CMAKE_INSTALL_PREFIX or --prefix.
configure_file(${packaging_dir}/halqvantor.pc.in ${packaging_out}/halqvantor.pc.in @ONLY)
install(CODE "
  file(READ \"${packaging_out}/halqvantor.pc.in\" pc)
  string(REPLACE \"%PREFIX%\" \"\${CMAKE_INSTALL_PREFIX}\" pc \"\${pc}\")
  file(WRITE \"${packaging_out}/halqvantor.pc\" \"\${pc}\")"
        COMPONENT dev)
install(FILES ${packaging_out}/halqvantor.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

# A stripped install (cpack, `cmake --install --strip`) strips the static library's debug information too.
install(CODE "
  if(CMAKE_INSTALL_DO_STRIP)
    execute_process(COMMAND \"${CMAKE_STRIP}\" --strip-debug
                    \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/$<TARGET_FILE_NAME:halqvantor_static>\")
  endif()"
        COMPONENT dev)

# The user-database schemas, for administrators who create the tables on their own server.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/src/users/schema/ DESTINATION ${CMAKE_INSTALL_DATADIR}/halqvantor/schema
        COMPONENT dev FILES_MATCHING PATTERN "*.sql")

# ---- man pages and bash completion of the tools

# The man pages come from the programs' own --help and --version through help2man. Sanitizer builds are
# never installed and leave them out.
find_program(HELP2MAN help2man)
find_program(GZIP gzip)
if(TARGET vantor AND TARGET vantor-gateway AND NOT HALQVANTOR_SANITIZE AND NOT HALQVANTOR_TSAN
   AND NOT HALQVANTOR_FUZZ)
  if(HELP2MAN AND GZIP)
    set(pages)
    function(halqvantor_man_page program component summary)
      set(out ${packaging_out}/man/${program}.1.gz)
      add_custom_command(OUTPUT ${out}
        COMMAND ${CMAKE_COMMAND} -E make_directory ${packaging_out}/man
        COMMAND sh ${packaging_dir}/man_page.sh ${HELP2MAN} $<TARGET_FILE:${program}> ${summary}
                ${packaging_dir}/${program}.h2m ${out}
        DEPENDS ${program} ${packaging_dir}/man_page.sh ${packaging_dir}/${program}.h2m
        COMMENT "Writing the man page ${program}(1)" VERBATIM)
      install(FILES ${out} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT ${component})
      set(pages ${pages} ${out} PARENT_SCOPE)
    endfunction()
    halqvantor_man_page(vantor tools "archive gateway client on the command line")
    halqvantor_man_page(vantor-gateway gateway "reference gateway serving a sample archive")
    add_custom_target(man_pages ALL DEPENDS ${pages})
  else()
    message(STATUS "man pages: not written (needs help2man and gzip; Debian's help2man)")
  endif()
endif()
if(TARGET vantor)
  install(FILES ${packaging_dir}/vantor.bash-completion DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
          RENAME vantor COMPONENT tools)
endif()

# ---- Debian packages

# Each package carries its copyright file and a changelog, as Debian's tools expect of every package.
string(TIMESTAMP HALQVANTOR_PACKAGE_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)  # honours SOURCE_DATE_EPOCH
configure_file(${packaging_dir}/copyright ${packaging_out}/copyright @ONLY)
configure_file(${packaging_dir}/changelog.in ${packaging_out}/changelog @ONLY)
add_custom_command(OUTPUT ${packaging_out}/changelog.Debian.gz
  COMMAND sh -c "gzip -9n <changelog >changelog.Debian.gz" WORKING_DIRECTORY ${packaging_out}
  DEPENDS ${packaging_out}/changelog VERBATIM)
add_custom_target(package_changelog ALL DEPENDS ${packaging_out}/changelog.Debian.gz)
set(packages lib:${HALQVANTOR_LIB_PACKAGE} dev:libhalqvantor-dev tools:vantor gateway:vantor-gateway)
foreach(entry ${packages})
  string(REPLACE ":" ";" entry "${entry}")
  list(GET entry 0 component)
  list(GET entry 1 package)
  # Only in the packages (which install component by component), not in a plain `cmake --install`.
  install(FILES ${packaging_out}/copyright ${packaging_out}/changelog.Debian.gz
          DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package} COMPONENT ${component} EXCLUDE_FROM_ALL)
endforeach()

# A project that adds this one with add_subdirectory makes its own packages.
if(NOT PROJECT_IS_TOP_LEVEL)
  return()
endif()
set(CPACK_GENERATOR DEB)
set(CPACK_SOURCE_GENERATOR "")
set(CPACK_PACKAGE_NAME halqvantor)
set(CPACK_PACKAGE_VENDOR "HalqVantor developers")
set(CPACK_PACKAGE_CONTACT ${HALQVANTOR_PACKAGE_MAINTAINER})
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_SET_DESTDIR ON)  # install scripts see the packages' prefix as CMAKE_INSTALL_PREFIX (pkg-config above)
set(CPACK_INSTALL_PREFIX ${CPACK_PACKAGING_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)  # the build carries debug information; the packages do not
set(CPACK_COMPONENTS_ALL lib dev)
if(TARGET vantor)
  list(APPEND CPACK_COMPONENTS_ALL tools gateway)
endif()
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${HALQVANTOR_PACKAGE_RELEASE})
set(CPACK_DEBIAN_PACKAGE_SOURCE halqvantor)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

set(CPACK_DEBIAN_LIB_PACKAGE_NAME ${HALQVANTOR_LIB_PACKAGE})
set(CPACK_DEBIAN_LIB_PACKAGE_SECTION libs)
# ldconfig runs through dpkg's trigger when the package comes or goes (lintian asks for it); CPack's
# postinst and postrm call it as well.
configure_file(${packaging_dir}/lib.triggers ${packaging_out}/lib/triggers COPYONLY)
set(CPACK_DEBIAN_LIB_PACKAGE_CONTROL_EXTRA ${packaging_out}/lib/triggers)
set(CPACK_DEBIAN_LIB_DESCRIPTION "client component for the Vantor document archive gateway
The halqvantor library gives C++ programs and portal hosts the clsVantor
object: channels, archives, queries and hit lists, document information,
segment texts, notes and entry masks over the gateway's text protocol on
TCP; document files between the gateway, a shared blob folder and the
browser; and a user directory (users, log-on, groups, rights) in SQLite or
any database with an ODBC driver.
.
This package holds the shared library.")

set(CPACK_COMPONENT_DEV_DEPENDS lib)  # on the library of the same version
set(CPACK_DEBIAN_DEV_PACKAGE_NAME libhalqvantor-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
# The static library and the CMake package need the libraries' own development files.
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libsqlite3-dev, unixodbc-dev, libsodium-dev, pkg-config")
set(CPACK_DEBIAN_DEV_DESCRIPTION "client component for the Vantor archive gateway (development files)
The halqvantor library gives C++ programs and portal hosts the clsVantor
object for a document archive gateway and its user directory.
.
This package holds the headers, the static library, the CMake package
(find_package(halqvantor)), the pkg-config file (halqvantor) and the SQL
schemas of the user database under /usr/share/halqvantor/schema.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME vantor)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS vantor-gateway)  # `vantor demo` starts it
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "command-line client for the Vantor document archive gateway
vantor calls any member of the archive gateway client component by name,
offers sub-commands for daily work (channels, archives, queries, documents,
notes, segment files, the user directory) with tables or JSON output, and
runs a demonstration session against a local reference gateway
(vantor demo, which needs the vantor-gateway package).")

set(CPACK_DEBIAN_GATEWAY_PACKAGE_NAME vantor-gateway)
set(CPACK_DEBIAN_GATEWAY_PACKAGE_SECTION net)
set(CPACK_DEBIAN_GATEWAY_DESCRIPTION "reference gateway for the Vantor archive client
vantor-gateway is a TCP server that speaks the archive gateway protocol for
every command over an archive kept in a folder. It serves the sample archive
installed under /usr/share/halqvantor/sample to the vantor program, to
portal development and to tests, for anyone without a gateway at hand.")

include(CPack)
