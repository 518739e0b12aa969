# Calls that a test program answers by itself, with ld's --wrap. The linker may know a call by another name than its
# callers; who defines __wrap_time or calls __real_time needn't.

include(CheckTypeSize)
set(CMAKE_EXTRA_INCLUDE_FILES time.h)
check_type_size(time_t MOORLOG_TIME_SIZE LANGUAGE CXX)
unset(CMAKE_EXTRA_INCLUDE_FILES)

set(MOORLOG_LINK_NAMES)
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  list(APPEND MOORLOG_LINK_NAMES _Znwm=_Znwj)  # operator new by the type of its argument
endif()
if(MOORLOG_TIME_SIZE GREATER CMAKE_SIZEOF_VOID_P)
  # As Debian 13 has it on a 32-bit board: a second form of each call that takes or gives the time.
  list(APPEND MOORLOG_LINK_NAMES adjtimex=___adjtimex64 clock_gettime=__clock_gettime64 gettimeofday=__gettimeofday64
       ioctl=__ioctl_time64 setsockopt=__setsockopt64 settimeofday=__settimeofday64 time=__time64)
endif()
foreach(pair IN LISTS MOORLOG_LINK_NAMES)
  string(REGEX MATCH "^(.*)=(.*)$" pair ${pair})
  set(MOORLOG_LINK_NAME_${CMAKE_MATCH_1} ${CMAKE_MATCH_2})
  add_compile_definitions(__wrap_${CMAKE_MATCH_1}=__wrap_${CMAKE_MATCH_2} __real_${CMAKE_MATCH_1}=__real_${CMAKE_MATCH_2})
endforeach()

# moorlog_wrap(TARGET PRIVATE|INTERFACE call...)
function(moorlog_wrap target scope)
  foreach(call IN LISTS ARGN)
    if(MOORLOG_LINK_NAME_${call})
      set(call ${MOORLOG_LINK_NAME_${call}})
    endif()
    target_link_options(${target} ${scope} -Wl,--wrap=${call})
  endforeach()
endfunction()

# moorlog_virtual_time(TARGET): what reads a clock or waits goes through emulators/virtual_time.h.
function(moorlog_virtual_time target)
  target_link_libraries(${target} PRIVATE moorlog::own_host)
  moorlog_wrap(${target} PRIVATE poll clock_gettime gettimeofday time)
endfunction()
