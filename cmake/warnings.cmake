# Every target of the project builds with the same warning set.
add_compile_options(-Wall -Wextra)
if(PMX_WERROR)
  add_compile_options(-Werror)
endif()
