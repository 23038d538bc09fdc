# Cross build for ARM64 Linux (the arm64 preset) with Debian's cross compiler
# (g++-aarch64-linux-gnu). The libraries the tests link, GoogleTest and OpenSSL's libcrypto, are
# Debian's arm64 packages installed side by side with the native ones (multiarch: libgtest-dev:arm64,
# libssl-dev:arm64). Test programs run under qemu-aarch64 (qemu-user) on the arm64 runtime of the
# same packages (libc6:arm64, libstdc++6:arm64), found through the host's loader cache; what the
# emulator cannot run is listed with its reason in tests/cross_exclusions.txt.
#
# The emulator is not given the cross root (/usr/aarch64-linux-gnu) as its system root: its loader
# would then take the C library of the host's cache, of another build, and hang on the first
# thread.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

# Headers and libraries: the cross root first, then the multiarch folders of the host.
set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)
# pkg-config (which FindOpenSSL consults) must describe the arm64 packages, not the host's.
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig)

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64)
