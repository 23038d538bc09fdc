# The Debian package: `cpack -G DEB` in a build folder (build/release) packs everything that
# `cmake --install` installs, under /usr: the shared library, headers, CMake and pkg-config files,
# the tool with its manual page and bash completion. The package is named after the library's
# SONAME (libnorvane.so.0 gives libnorvane0), dpkg-shlibdeps computes its dependencies, and it
# ships a shlibs file and the ldconfig trigger.
set(CPACK_PACKAGE_NAME libnorvane${PROJECT_VERSION_MAJOR})
set(CPACK_PACKAGE_VENDOR "Norvane")
set(CPACK_PACKAGE_CONTACT "Norvane developers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# The long description, under the summary line; CPack indents it and marks the blank line.
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "Norvane is a foundation library for 64-bit Linux: replaceable memory managers
and pools, reference-counted strings, buffers, arrays and hash maps, file,
memory, mapped and cached streams, threads, contexts and non-unwinding
exceptions, UTF-8/UTF-16 and code-page conversion, and cryptography.

This package holds the shared library, its headers, CMake and pkg-config
files, and the norvane command-line tool.")

include(CPack)
