# Stands in for a 32-bit ARM board where that has to be quick, or the sanitizers are wanted: cmake --preset i386. So char
# is unsigned, and numbers are calculated with no more digits than they are stored with.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(MOORLOG_TRIPLET i686-linux-gnu)
set(CMAKE_CXX_FLAGS_INIT "-funsigned-char -msse2 -mfpmath=sse")
include("${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake")
