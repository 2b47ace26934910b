# Warnings, sanitizers and coverage for the project's own targets.
function(ves_set_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion
    $<$<COMPILE_LANGUAGE:C,CXX>:-Wshadow>
    $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>
    $<$<COMPILE_LANG_AND_ID:Fortran,GNU>:-std=f2018>)
  if(VES_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()

if(VES_SANITIZE)
  add_compile_options(-fsanitize=${VES_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${VES_SANITIZE})
endif()
# Counters in the library alone: what tests it runs at full speed.
function(ves_count_coverage target)
  target_compile_options(${target} PRIVATE --coverage -O0)
  target_link_options(${target} PRIVATE --coverage)
endfunction()
if(VES_COVERAGE)
  add_compile_options(-O2)
endif()
