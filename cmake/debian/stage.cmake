# Run by CPack on the staged tree: documents for Debian, compressed as its policy asks.
set(share ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr/share)
set(doc ${share}/doc/murmurase)
file(COPY ${CPACK_MURMURASE_SOURCE}/cmake/debian/copyright DESTINATION ${doc})
configure_file(${CPACK_MURMURASE_SOURCE}/CHANGELOG.md ${doc}/changelog COPYONLY)
string(TIMESTAMP now "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(WRITE ${doc}/changelog.Debian
"murmurase (${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}) unstable; urgency=medium

  * What changed is told in changelog.gz.

 -- ${CPACK_PACKAGE_CONTACT}  ${now}
")
file(GLOB pages ${share}/man/man1/*.1)
execute_process(COMMAND gzip -9 -n -f ${pages} ${doc}/changelog ${doc}/changelog.Debian
                COMMAND_ERROR_IS_FATAL ANY)
