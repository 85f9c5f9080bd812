# Own code only: what is called by harvane_own_code(target). -Wrestrict is off: g++ 12
# reports std::string's own operators where it inlines them (GCC bug 105651). With a
# sanitizer it also takes the insides of std::regex for uninitialised.
function(harvane_own_code target)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Werror -Wconversion -Wno-sign-conversion -Wnon-virtual-dtor
    -Woverloaded-virtual -Wold-style-cast -Wcast-qual -Wundef
    $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>
    $<$<BOOL:${HARVANE_SANITIZE}>:-Wno-maybe-uninitialized>)
endfunction()
