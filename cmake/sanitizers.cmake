# FD_SANITIZE=address,undefined or FD_SANITIZE=thread applies to every target.
if(FD_SANITIZE)
  set(_fd_san_flags -fsanitize=${FD_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_compile_options(${_fd_san_flags})
  add_link_options(-fsanitize=${FD_SANITIZE})
endif()
