# The shared library as it is shipped: SONAME, exports and installation.
target_link_libraries(fluviafs PRIVATE Threads::Threads ${FLUVIA_DEPENDENCIES})
set_target_properties(fluviafs PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION 0)
# Worker threads run until the process ends: the code they run must stay mapped after dlclose().
target_link_options(fluviafs PRIVATE -Wl,-z,nodelete)
