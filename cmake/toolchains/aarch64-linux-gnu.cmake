# Linux aarch64 with Debian's cross toolchain and multiarch arm64 packages
# (OpenCV, GoogleTest, the test peers). Programs run under qemu-aarch64, so
# the whole test suite runs as on the device's processor, NEON paths included.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
# The loader and C library are the multiarch libc6:arm64 ones under /, the
# same build that the arm64 OpenCV and GoogleTest packages were made against;
# the cross package's own copy (/usr/aarch64-linux-gnu) is an older build
# whose first pthread_create never returns under qemu-aarch64 7.2.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 -L /)
# Only the arm64 libraries: never pick up an x86-64 one from /usr/lib.
set(CMAKE_IGNORE_PATH /usr/lib/x86_64-linux-gnu /lib/x86_64-linux-gnu)
