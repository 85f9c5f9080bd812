# What `cmake --install` and CPack put where: the tool, its manual, its documents. The plug-in's ZIP
# is tools/package's.
if(WIN32 OR NOT TARGET harvane)
  return()
endif()
include(GNUInstallDirs)
# What is installed is built by who asks for it, and not all the rest.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)

# Made by the program, so that no command and no option is missing.
set(doc ${CMAKE_INSTALL_DATADIR}/doc/harvane)
set(manual ${PROJECT_BINARY_DIR}/manual)
file(MAKE_DIRECTORY ${manual})
add_custom_command(
  OUTPUT ${manual}/harvane.1.gz ${manual}/harvane
  COMMAND harvane manual man > ${manual}/harvane.1
  COMMAND gzip -9nf ${manual}/harvane.1
  COMMAND harvane manual bash > ${manual}/harvane
  DEPENDS harvane
  VERBATIM)
add_custom_target(manual ALL DEPENDS ${manual}/harvane.1.gz ${manual}/harvane)

install(TARGETS harvane RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${manual}/harvane.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${manual}/harvane DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(FILES delay_audio/Exports.h delay_audio/HostRecords.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/harvane/delay_audio)
file(GLOB documents CONFIGURE_DEPENDS docs/*.md)
install(FILES README.md CHANGELOG.md DESTINATION ${doc})
install(FILES ${documents} DESTINATION ${doc}/docs)
install(FILES packaging/copyright DESTINATION ${doc})
# The terms of what is compiled in, as Debian's packages state them. A system may leave them out.
foreach(package juce-modules-source libboost1.74-dev libcli11-dev libutfcpp-dev nlohmann-json3-dev)
  install(FILES /usr/share/doc/${package}/copyright
          DESTINATION ${doc}/licences RENAME ${package} OPTIONAL)
endforeach()
install(FILES examples/example_host.c DESTINATION ${doc}/examples)
file(GLOB schemas CONFIGURE_DEPENDS docs/*.schema.json tool/results/*.schema.json)
install(FILES ${schemas} DESTINATION ${CMAKE_INSTALL_DATADIR}/harvane)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME harvane)
set(CPACK_PACKAGE_CONTACT "The Harvane developers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "loudness meter and normaliser for audio files")
set(CPACK_PACKAGE_DESCRIPTION
"Measures every mono, stereo and 5.1 track of audio files by ITU-R BS.1770
and EBU R128, judges it, and brings it to a target loudness under a ceiling
for the true peak.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
include(CPack)
