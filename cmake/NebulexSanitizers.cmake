# Sanitizers apply to every target, tests and program alike.
if(NEBULEX_SANITIZERS)
  add_compile_options(-fsanitize=${NEBULEX_SANITIZERS} -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${NEBULEX_SANITIZERS})
endif()
