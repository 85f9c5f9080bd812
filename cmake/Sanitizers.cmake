set(HARVANE_SANITIZE "" CACHE STRING "Sanitizers of the whole build: address,undefined or thread")
if(HARVANE_SANITIZE)
  add_compile_options(-fsanitize=${HARVANE_SANITIZE} -fno-sanitize-recover=all
                      -fno-omit-frame-pointer -g)
  add_link_options(-fsanitize=${HARVANE_SANITIZE})
endif()
