# Our own targets build warning-free; Qt and Asio come in as system headers.
function(tapwright_strict_warnings target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Werror)
endfunction()
