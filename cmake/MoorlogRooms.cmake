# Flags and helper functions that every room shares.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# Our own code only: carried by moorlog_own, never exported to those who link the libraries.
add_library(moorlog_own INTERFACE)
target_compile_options(moorlog_own INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Woverloaded-virtual
                                             -Wnon-virtual-dtor -Werror)

if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # Optimised, g++ 12 sees overlapping copies in plain assignments to std::string (its bug 105651). On 32-bit ARM it tells
  # of parameters that compilers of before 2017 pass in another way.
  target_compile_options(moorlog_own INTERFACE -Wno-restrict -Wno-psabi)
endif()

if(MOORLOG_SANITIZE)
  add_compile_options(-fsanitize=${MOORLOG_SANITIZE} -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${MOORLOG_SANITIZE})
endif()
if(MOORLOG_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
if(MOORLOG_COVERAGE)
  add_compile_options(--coverage)
  add_link_options(--coverage)
endif()
# A program loads only the shared libraries that it uses, whatever its rooms could use.
add_link_options(-Wl,--as-needed)

# moorlog_room(NAME [NOT_INSTALLED] [FILES source...] [LINKS target...]): the folder's sources as the static library
# moorlog::NAME, which is also the name of a component of the installed package.
#
# A target is another room or the plain name of a system library, which users of the installed rooms link as well.
# NOT_INSTALLED is for what only tests and examples use. A file in a room belongs to it, so the sources are found, not
# listed; FILES are a part of the folder that is useful without the rest of it, and comes first.
function(moorlog_room name)
  cmake_parse_arguments(arg "NOT_INSTALLED" "" "FILES;LINKS" ${ARGN})
  if(arg_FILES)
    set(sources ${arg_FILES})
    list(TRANSFORM sources PREPEND "${CMAKE_CURRENT_SOURCE_DIR}/")
    set_property(DIRECTORY APPEND PROPERTY moorlog_taken ${sources})
  else()
    file(GLOB sources CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/*.cpp")
    get_property(taken DIRECTORY PROPERTY moorlog_taken)
    list(REMOVE_ITEM sources ${taken})
  endif()
  add_library(moorlog_${name} STATIC ${sources})
  add_library(moorlog::${name} ALIAS moorlog_${name})
  set_target_properties(moorlog_${name} PROPERTIES EXPORT_NAME ${name})
  target_compile_features(moorlog_${name} PUBLIC cxx_std_20)
  # Large files also where off_t has 32 bits; a user's off_t has to be the same one.
  target_compile_definitions(moorlog_${name} PUBLIC _FILE_OFFSET_BITS=64)
  target_include_directories(
    moorlog_${name} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
                           $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/moorlog>)
  target_link_libraries(moorlog_${name} PUBLIC ${arg_LINKS} PRIVATE $<BUILD_INTERFACE:moorlog_own>)
  if(NOT arg_NOT_INSTALLED)
    cmake_path(GET CMAKE_CURRENT_SOURCE_DIR FILENAME folder)
    set_property(GLOBAL APPEND PROPERTY MOORLOG_COMPONENTS ${name})
    set_property(GLOBAL PROPERTY MOORLOG_FOLDER_${name} ${folder})
    set_property(GLOBAL PROPERTY MOORLOG_LINKS_${name} ${arg_LINKS})
  endif()
endfunction()
