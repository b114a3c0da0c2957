# The manual pages of section 3 (scripts/manual writes them); every function leads to the page that
# tells of it.
file(GLOB FLUVIA_MANUAL CONFIGURE_DEPENDS docs/man/*.3)
install(FILES ${FLUVIA_MANUAL} DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT dev)
foreach(page ${FLUVIA_MANUAL})
  get_filename_component(file ${page} NAME)
  file(READ ${page} text)
  string(REGEX MATCH "\n.SH NAME\n.*\n.SH SYNOPSIS\n" told "${text}")
  string(REGEX MATCHALL "[cx]_fluvia_file_[A-Za-z_]+" names "${told}")
  foreach(name ${names})
    file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/man3/${name}.3 ".so man3/${file}\n")
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/man3/${name}.3
            DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT dev)
  endforeach()
endforeach()

# What documents are made of their sources: pictures, and the reference of the C interface.
add_custom_target(docs
  COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/scripts/pictures
  COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/scripts/reference
  COMMENT "build/pictures, build/docs/reference" VERBATIM)
