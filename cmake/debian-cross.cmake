# What the toolchain files of the boards have in common. Debian's own cross compilers know where headers and libraries
# are. Programs of the board are started as they are: the kernel has to know their emulator, see script/root.
set(CMAKE_CXX_COMPILER ${MOORLOG_TRIPLET}-g++)
string(REPLACE i686 i386 libraries ${MOORLOG_TRIPLET})
set(ENV{PKG_CONFIG_LIBDIR} "/usr/lib/${libraries}/pkgconfig:/usr/share/pkgconfig")
