# A Debian package of all that is installed: `./dev package`.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME murmurase)
set(CPACK_PACKAGE_CONTACT "murmurase maintainers <maintainers@murmurase.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SECTION video)
# The libraries of the programs and of the module that they load.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# murmurase-xmp loads it, if it is there, for the timecodes of MXF, Matroska and AVI files.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS libmediainfo0v5)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "transcripts, workbooks and clips from speech in movies")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"murmurase reads the speech transcription in a QuickTime movie's XMP metadata,
lists the speakers, groups the words into timed phrases and writes them as a
text transcript, an Excel 97-2003 workbook or a Final Cut Pro XML clip with a
marker for each phrase.

This package holds the programs murmurase and murmurase-xmp, the loadable
module behind them, and what building a host of the module needs: its C header,
a CMake package and a pkg-config file.")
# What only a Debian package has is laid into the staged tree.
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/debian/stage.cmake)
set(CPACK_MURMURASE_SOURCE ${PROJECT_SOURCE_DIR})
include(CPack)
