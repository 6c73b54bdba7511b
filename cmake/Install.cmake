# What "cmake --install" puts where (GNU directory names under the prefix):
#   bin/                pal2ntsc and vclip
#   share/man/man1/     their manual pages, compressed as Debian keeps them
#   share/doc/pal2ntsc/ README.md and the copyright notes
# Nothing else: the static libraries, tests, benchmarks and fuzz targets
# are build products only.
include(GNUInstallDirs)

set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

install(TARGETS pal2ntsc vclip RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

# gzip -9n: no name or time stamp in the file, so two builds give the same
# bytes. Without gzip the pages are installed as they are.
find_program(PAL2NTSC_GZIP gzip)
set(pal2ntsc_man_pages pal2ntsc.1 vclip.1)
set(pal2ntsc_man_built "")
foreach(page IN LISTS pal2ntsc_man_pages)
  set(source ${PROJECT_SOURCE_DIR}/man/${page})
  if(PAL2NTSC_GZIP)
    set(built ${PROJECT_BINARY_DIR}/man/${page}.gz)
    add_custom_command(OUTPUT ${built}
      COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/man
      COMMAND sh -c "\"$0\" -9nc \"$1\" > \"$2\"" ${PAL2NTSC_GZIP} ${source} ${built}
      DEPENDS ${source}
      COMMENT "Compressing manual page ${page}"
      VERBATIM)
    list(APPEND pal2ntsc_man_built ${built})
  else()
    list(APPEND pal2ntsc_man_built ${source})
  endif()
endforeach()
add_custom_target(man_pages ALL DEPENDS ${pal2ntsc_man_built})
install(FILES ${pal2ntsc_man_built} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)

install(FILES README.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES COPYRIGHT DESTINATION ${CMAKE_INSTALL_DOCDIR} RENAME copyright)
