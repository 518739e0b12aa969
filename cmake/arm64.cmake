# For a 64-bit ARM board, on Debian: cmake --preset arm64.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(MOORLOG_TRIPLET aarch64-linux-gnu)
include("${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake")
