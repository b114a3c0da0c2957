# The manual pages of section 3, from the comments of the header.
find_program(PYTHON3 python3 REQUIRED)
set(FLUVIA_MANUAL ${CMAKE_CURRENT_BINARY_DIR}/man3)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
             ${CMAKE_CURRENT_SOURCE_DIR}/api/fluviafs.h ${CMAKE_CURRENT_SOURCE_DIR}/scripts/interface-pages)
execute_process(COMMAND ${PYTHON3} ${CMAKE_CURRENT_SOURCE_DIR}/scripts/interface-pages ${FLUVIA_MANUAL}
                COMMAND_ERROR_IS_FATAL ANY)
install(DIRECTORY ${FLUVIA_MANUAL} DESTINATION ${CMAKE_INSTALL_MANDIR} COMPONENT dev)

# The documents that are made from sources: pictures, and the reference of the C interface.
add_custom_target(docs
  COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/scripts/pictures
  COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/scripts/reference
  COMMENT "build/pictures, build/docs/reference" VERBATIM)
