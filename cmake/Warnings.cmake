# Own code only: what is called by harvane_own_code(target). -Wrestrict is off: g++ 12
# reports std::string's own operators where it inlines them (GCC bug 105651).
function(harvane_own_code target)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Werror -Wconversion -Wno-sign-conversion -Wnon-virtual-dtor
    -Woverloaded-virtual -Wold-style-cast -Wcast-qual -Wundef
    $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
  if(HARVANE_SANITIZE)
    # With its instructions in between, the compiler takes the insides of std::regex and the
    # like for uninitialised. The other presets hold the code to its warnings.
    target_compile_options(${target} PRIVATE -Wno-error)
  endif()
endfunction()
