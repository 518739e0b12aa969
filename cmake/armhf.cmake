# For a 32-bit ARM board with floating point, on Debian: cmake --preset armhf. Compilers are those of
# crossbuild-essential-armhf; libraries stand where Debian has them for several architectures beside each other.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(MOORLOG_TRIPLET arm-linux-gnueabihf)
include("${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake")
