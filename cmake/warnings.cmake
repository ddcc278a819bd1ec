# What every target of the project is compiled with.
add_library(lenswire_build_flags INTERFACE)
# -Wno-restrict: gcc 12 takes the joining of two std::strings for overlapping copies.
target_compile_options(lenswire_build_flags INTERFACE -Wall -Wextra -Werror
    $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wno-restrict>)
# ARM notes that gcc 7 changed how some arguments are passed; nothing here was compiled by an older one.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
    target_compile_options(lenswire_build_flags INTERFACE -Wno-psabi)
endif()
if(LENSWIRE_SANITIZE)
    add_compile_options(-fsanitize=${LENSWIRE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${LENSWIRE_SANITIZE})
    # Instrumented code hides initialisations from gcc, which then warns of the standard library's own.
    target_compile_options(lenswire_build_flags INTERFACE $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wno-maybe-uninitialized>)
endif()
