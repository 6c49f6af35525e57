# Every target of the project compiles with these warnings, and warnings are errors.
set(QVA_WARNINGS -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wold-style-cast -Wcast-align
    -Wunused -Woverloaded-virtual -Wformat=2 -Werror)

function(qva_target_warnings target)
  target_compile_options(${target} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:${QVA_WARNINGS}>)
endfunction()
